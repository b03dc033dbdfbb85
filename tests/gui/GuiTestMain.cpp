#include <gtest/gtest.h>

#include <QApplication>

#include "GuiTestKit.h"

int main(int argc, char** argv) {
    // Real widgets need a GUI application. Without a chosen platform (test discovery at build
    // time, a developer's terminal) they stay off screen rather than needing a display.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    // Every alert and question that a test brings up must be readable as the user would see it.
    ScriptedPrompter::onMessage = &expectReadable;
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
