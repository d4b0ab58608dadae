// corvina-today on a Wayland desktop with no X server at all, as under a compositor that runs no
// Xwayland: a headless Weston of the test's own, the program told to use Qt's Wayland platform
// plugin (QT_QPA_PLATFORM=wayland) and given no DISPLAY to fall back on. The widget must start,
// draw and show its window there; without the plugin (the package recommends qt6-wayland for it)
// it cannot, which the second test shows with the plugin taken away.
#include "support/TempContainer.h"
#include "support/WestonServer.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QLibraryInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>

using corvina::test::TempContainer;
using corvina::test::WestonServer;

namespace {

const QString kWaylandAccount = QStringLiteral("ann@example.org");

QProcessEnvironment widgetEnvironment(const WestonServer& weston, const QString& config) {
    QProcessEnvironment env = weston.clientEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    // Under AddressSanitizer the program's leak check is off here, deliberately: the Wayland client
    // library keeps what it allocated for the connection until the process ends, and a plugin that
    // Qt unloads before the end leaves its allocations without a name, so no suppression can name
    // them. Our own code's leaks are checked by the whole-program tests that draw offscreen and on X.
    if (env.contains(QStringLiteral("ASAN_OPTIONS")))
        env.insert(QStringLiteral("ASAN_OPTIONS"),
                   env.value(QStringLiteral("ASAN_OPTIONS")) + QStringLiteral(":detect_leaks=0"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config);
    return env;
}

void fill(TempContainer& container) {
    container.writeAccounts({TempContainer::account(kWaylandAccount)});
    container.writeSnapshot(
        kWaylandAccount, QStringLiteral("inbox.plist"),
        TempContainer::inboxMessages(kWaylandAccount,
                                     {QStringLiteral("m0"), QStringLiteral("m1"), QStringLiteral("m2")}));
}

// Where `part` is found, pixel for pixel, in `screen`; nothing when it is not there.
std::optional<QPoint> find(const QImage& screen, const QImage& part) {
    if (screen.isNull() || part.isNull() || part.width() > screen.width() || part.height() > screen.height())
        return std::nullopt;
    const QImage big = screen.convertToFormat(QImage::Format_RGB32);
    const QImage small = part.convertToFormat(QImage::Format_RGB32);
    const size_t rowBytes = size_t(small.width()) * 4;
    for (int y = 0; y + small.height() <= big.height(); ++y) {
        for (int x = 0; x + small.width() <= big.width(); ++x) {
            int row = 0;
            while (row < small.height() && std::memcmp(big.constScanLine(y + row) + size_t(x) * 4,
                                                       small.constScanLine(row), rowBytes) == 0)
                ++row;
            if (row == small.height())
                return QPoint(x, y);
        }
    }
    return std::nullopt;
}

TEST(WaylandProgram, TheWidgetStartsAndShowsItsWindowOnWaylandWithoutAnXServer) {
    WestonServer weston;
    ASSERT_TRUE(weston.start()) << weston.error().toStdString();
    TempContainer container;
    fill(container);
    QTemporaryDir config;
    QTemporaryDir out;

    // The widget's own picture of its window, drawn on Wayland.
    QProcess shot;
    shot.setProcessEnvironment(widgetEnvironment(weston, config.path()));
    const QString file = out.filePath(QStringLiteral("widget.png"));
    shot.start(QStringLiteral(CORVINA_TODAY_BINARY),
               {QStringLiteral("--container"), container.root(), QStringLiteral("--screenshot"), file});
    ASSERT_TRUE(shot.waitForFinished(60000));
    const QString shotErrors = QString::fromUtf8(shot.readAllStandardError());
    ASSERT_EQ(shot.exitStatus(), QProcess::NormalExit) << shotErrors.toStdString();
    ASSERT_EQ(shot.exitCode(), 0) << shotErrors.toStdString();
    const QImage picture(file);
    ASSERT_FALSE(picture.isNull()) << shotErrors.toStdString();

    // The window as the compositor shows it: the widget's picture, pixel for pixel, somewhere on
    // the screen (the desktop shell places it, and Qt draws a title bar around it).
    QProcess widget;
    widget.setProcessEnvironment(widgetEnvironment(weston, config.path()));
    widget.start(QStringLiteral(CORVINA_TODAY_BINARY),
                 {QStringLiteral("--container"), container.root(), QStringLiteral("--interval"),
                  QStringLiteral("3600")});
    ASSERT_TRUE(widget.waitForStarted(5000));
    QImage screen;
    std::optional<QPoint> at;
    const QDeadlineTimer deadline(30000);
    while (!at && !deadline.hasExpired() && widget.state() == QProcess::Running) {
        QThread::msleep(100);
        screen = weston.screen();
        at = find(screen, picture);
    }
    const QString errors = QString::fromUtf8(widget.readAllStandardError());
    EXPECT_EQ(widget.state(), QProcess::Running) << errors.toStdString();
    ASSERT_FALSE(screen.isNull()) << "the compositor's screen could not be read";
    if (!at) {
        out.setAutoRemove(false);
        screen.save(out.filePath(QStringLiteral("screen.png")));
    }
    EXPECT_TRUE(at) << "the compositor does not show the widget's window (its screen: "
                    << out.filePath(QStringLiteral("screen.png")).toStdString() << "); "
                    << errors.toStdString();
    widget.terminate();
    EXPECT_TRUE(widget.waitForFinished(5000));
}

TEST(WaylandProgram, WithoutQtsWaylandPluginTheWidgetCannotStart) {
    // What a machine without qt6-wayland has: Qt's plugins without that package's files (its
    // platform plugins libqwayland-*.so and its wayland-* folders), for a copy of the program whose
    // qt.conf points there (Qt reads qt.conf beside the program).
    QTemporaryDir dir;
    const QString plugins = QLibraryInfo::path(QLibraryInfo::PluginsPath);
    QDirIterator it(plugins, QDir::Files, QDirIterator::Subdirectories);
    int linked = 0;
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(plugins).relativeFilePath(path);
        if (relative.startsWith(QLatin1String("wayland-")) ||
            relative.startsWith(QLatin1String("platforms/libqwayland")))
            continue;
        QDir().mkpath(QFileInfo(dir.filePath(QStringLiteral("plugins/") + relative)).path());
        ASSERT_TRUE(QFile::link(path, dir.filePath(QStringLiteral("plugins/") + relative)));
        ++linked;
    }
    ASSERT_GT(linked, 0) << "no Qt plugins in " << plugins.toStdString();
    const QString program = dir.filePath(QStringLiteral("corvina-today"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_TODAY_BINARY), program));
    // the program shows its widget from the window's half beside it
    ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_TODAY_WINDOW),
                            dir.filePath(QStringLiteral("corvina-today-window.so"))));
    QFile conf(dir.filePath(QStringLiteral("qt.conf")));
    ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
    conf.write("[Paths]\nPlugins=" + dir.filePath(QStringLiteral("plugins")).toUtf8() + "\n");
    conf.close();

    WestonServer weston;
    ASSERT_TRUE(weston.start()) << weston.error().toStdString();
    TempContainer container;
    fill(container);
    QTemporaryDir config;
    QProcess widget;
    widget.setProcessEnvironment(widgetEnvironment(weston, config.path()));
    widget.start(program, {QStringLiteral("--container"), container.root(), QStringLiteral("--screenshot"),
                           config.filePath(QStringLiteral("never.png"))});
    ASSERT_TRUE(widget.waitForFinished(30000));
    const QString errors = QString::fromUtf8(widget.readAllStandardError());
    EXPECT_TRUE(widget.exitStatus() != QProcess::NormalExit || widget.exitCode() != 0);
    EXPECT_TRUE(errors.contains(QStringLiteral("Could not find the Qt platform plugin \"wayland\"")))
        << errors.toStdString();
    EXPECT_FALSE(QFileInfo::exists(config.filePath(QStringLiteral("never.png"))));
}

} // namespace
