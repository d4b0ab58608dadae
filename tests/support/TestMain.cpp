#include <QApplication>
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
    g_previous = qInstallMessageHandler(quietOffscreen);
    ::testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
