#include <QApplication>
#include <QFile>
#include <QTemporaryDir>
#include <ctime>
#include <gtest/gtest.h>

// Every test binary runs with a Qt application object, headless: CTest sets the offscreen platform,
// and so does this main for test discovery and for runs by hand.
namespace {

// The offscreen platform warns about every fixed-size window; the line says nothing about the test.
QtMessageHandler g_previous = nullptr;
void quietOffscreen(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.startsWith(QLatin1String("This plugin does not support propagateSizeHints")))
        return;
    g_previous(type, context, message);
}

} // namespace

int main(int argc, char** argv) {
    // The zone and the locale are pinned here rather than by CTest: gtest_discover_tests (CMake
    // 3.25, PRE_TEST) splits a list of environment variables into separate properties and kept only
    // the first, so the suite ran in whatever zone and language the machine had. Pinned here, a run
    // by hand is pinned the same way. Tests that need another zone or locale set their own.
    qputenv("TZ", "UTC");
    qputenv("LANG", "C.UTF-8");
    qputenv("LC_ALL", "C.UTF-8");
    ::tzset();
    // A state folder of the run's own: the widget reads the bridge's status file from there, and a
    // bridge run by a test writes it there; the user's own never leaks into a test, nor a test's
    // into the user's. Tests that need their own set it again.
    QTemporaryDir state;
    if (state.isValid())
        qputenv("XDG_STATE_HOME", QFile::encodeName(state.path()));
    g_previous = qInstallMessageHandler(quietOffscreen);
    ::testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
