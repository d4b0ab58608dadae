#include <QGuiApplication>
#include <gtest/gtest.h>

// Every test binary runs with a Qt application object, headless: CTest sets the offscreen platform,
// and so does this main for test discovery and for runs by hand.
int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QGuiApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
