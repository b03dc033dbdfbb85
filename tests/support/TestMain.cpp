#include <gtest/gtest.h>

#include <QCoreApplication>

int main(int argc, char** argv) {
    // The keychain backend and queued completions need an application object and its loop.
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
