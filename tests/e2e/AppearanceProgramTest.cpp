// corvina-today follows the desktop's light or dark, as the settings portal on its session bus says.
#include "support/PrivateSessionBus.h"
#include "support/SettingsPortal.h"
#include "support/TempContainer.h"

#include <QEventLoop>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using corvina::test::PrivateSessionBus;
using corvina::test::SettingsPortal;
using corvina::test::TempContainer;

namespace {

// The screenshot of the demo-like container, taken while this process's event loop runs (the portal
// stand-in lives in this process and must answer meanwhile).
QImage shootOnBus(const QString& container) {
    QTemporaryDir out;
    QTemporaryDir config;
    QTemporaryDir state;
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
    p.setProcessEnvironment(env);
    const QString file = out.filePath(QStringLiteral("shot.png"));
    QEventLoop loop;
    QObject::connect(&p, &QProcess::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    p.start(QStringLiteral(CORVINA_TODAY_BINARY),
            {QStringLiteral("--container"), container, QStringLiteral("--screenshot"), file});
    loop.exec();
    if (p.state() != QProcess::NotRunning || p.exitCode() != 0) {
        ADD_FAILURE() << "corvina-today: " << p.readAllStandardError().toStdString();
        p.kill();
        p.waitForFinished();
        return {};
    }
    return QImage(file);
}

} // namespace

TEST(AppearanceProgram, ALightDesktopGetsTheLightWidgetAndADarkOneTheDark) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    container.writeSnapshot(
        account, QStringLiteral("inbox.plist"),
        TempContainer::inboxMessages(account, {QStringLiteral("a"), QStringLiteral("b")}));

    SettingsPortal portal(bus->address(), 2);
    ASSERT_TRUE(portal.isRegistered());
    const QImage light = shootOnBus(container.root());
    ASSERT_FALSE(light.isNull());
    EXPECT_GT(light.pixelColor(2, 2).lightness(), 200);

    portal.setColorScheme(1);
    const QImage dark = shootOnBus(container.root());
    ASSERT_FALSE(dark.isNull());
    EXPECT_EQ(dark.pixelColor(2, 2), QColor(0x24, 0x26, 0x2b));
}
