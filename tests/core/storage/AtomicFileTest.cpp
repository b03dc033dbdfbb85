#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "storage/AtomicFile.h"

namespace {

TEST(AtomicFileTest, WritesPrivatelyAndReplacesWithoutLeftovers) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("key.pfx"));
    ASSERT_TRUE(AtomicFile::write(path, QByteArray(100000, 'a')));
    ASSERT_TRUE(AtomicFile::write(path, "short"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("short"));
    EXPECT_EQ(QFileInfo(path).permissions(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                 QFileDevice::ReadUser | QFileDevice::WriteUser);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
              QStringList{QStringLiteral("key.pfx")});
}

TEST(AtomicFileTest, FailureLeavesNothingBehind) {
    QTemporaryDir dir;
    EXPECT_FALSE(AtomicFile::write(dir.filePath(QStringLiteral("missing/key.pfx")), "x"));
    EXPECT_TRUE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).isEmpty());
}

}  // namespace
