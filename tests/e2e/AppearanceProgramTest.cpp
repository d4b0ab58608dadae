// corvina-today follows the desktop's light or dark, as the settings portal on its session bus says.
#include "support/PrivateSessionBus.h"
#include "support/SettingsPortal.h"
#include "support/TempContainer.h"
#include "support/XServer.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using corvina::test::PrivateSessionBus;
using corvina::test::SettingsPortal;
using corvina::test::TempContainer;
using corvina::test::XServer;

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

TEST(AppearanceProgram, TheRunningWidgetFollowsTheDesktopWhenItChanges) {
    PrivateSessionBus* bus = PrivateSessionBus::instance();
    ASSERT_NE(bus, nullptr);
    XServer x;
    ASSERT_TRUE(x.start()) << "Xvfb could not be started";
    TempContainer container;
    const QString account = QStringLiteral("ann@example.org");
    container.writeAccounts({TempContainer::account(account)});
    container.writeSnapshot(account, QStringLiteral("inbox.plist"),
                            TempContainer::inboxMessages(account, {QStringLiteral("a")}));
    SettingsPortal portal(bus->address(), 1);
    ASSERT_TRUE(portal.isRegistered());

    QTemporaryDir config;
    QTemporaryDir state;
    QProcess widget;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("DISPLAY"), x.display());
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    env.insert(QStringLiteral("XDG_STATE_HOME"), state.path());
    env.remove(QStringLiteral("XDG_CURRENT_DESKTOP"));
    widget.setProcessEnvironment(env);
    widget.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    widget.start(QStringLiteral(CORVINA_TODAY_BINARY), {QStringLiteral("--container"), container.root()});
    ASSERT_TRUE(widget.waitForStarted(5000));
    // The portal lives in this process: its answers go out while the test waits here.
    const auto panelAt = [&](const QPoint& origin) { return x.screen().pixelColor(origin + QPoint(2, 2)); };
    const auto waitFor = [](const std::function<bool()>& condition, int timeoutMs) {
        QDeadlineTimer deadline(timeoutMs);
        while (!condition()) {
            if (deadline.hasExpired())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
        return true;
    };
    QString windowId;
    ASSERT_TRUE(
        waitFor([&] { return !(windowId = x.findWindow(QStringLiteral("Corvina Today"))).isEmpty(); }, 10000))
        << "the widget's window did not appear";
    const QPoint origin = x.windowOrigin(windowId);
    EXPECT_TRUE(waitFor([&] { return panelAt(origin) == QColor(0x24, 0x26, 0x2b); }, 5000));

    portal.setColorScheme(2);
    EXPECT_TRUE(waitFor([&] { return panelAt(origin).lightness() > 200; }, 3000))
        << "the window stayed dark after the desktop turned light";
    portal.setColorScheme(1);
    EXPECT_TRUE(waitFor([&] { return panelAt(origin) == QColor(0x24, 0x26, 0x2b); }, 3000))
        << "the window stayed light after the desktop turned dark";
    widget.terminate();
    widget.waitForFinished(3000);
}
