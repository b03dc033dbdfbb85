#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
    // Real widgets need a GUI application. Without a chosen platform (test discovery at build
    // time, a developer's terminal) they stay off screen rather than needing a display.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
