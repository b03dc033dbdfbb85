// Activity logs that someone else wrote to: a line that is not UTF-8, a line of 10 MB, file paths
// that carry the separators of the format. Reading never changes the file, and what can be read
// is read.
#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "TestFiles.h"
#include "log/ActivityLog.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray line(const QByteArray& file, const QByteArray& status = "Success") {
    return "2026-Nov-22 | 09:00:00 | Encrypt | " + file + " | bob,alice | " + status + "\n";
}

class HostileLogTest : public ::testing::Test {
protected:
    void write(const QByteArray& content) { ASSERT_TRUE(putFile(path(), content)); }
    QString path() const { return dir.filePath(QStringLiteral("alice.log")); }

    QTemporaryDir dir;
};

TEST_F(HostileLogTest, ATenMegabyteLineIsReadWholeAndTheLinesAroundIt) {
    const QByteArray longPath = "/" + QByteArray(10 * 1024 * 1024, 'p');
    write(line("/first") + line(longPath) + line("/last", "Failed"));
    const QByteArray before = fileDigest(path());
    const QList<LogEntry> entries = ActivityLog(path()).getLogEntries();
    ASSERT_EQ(entries.size(), 3);
    EXPECT_EQ(entries[0].filePath, QStringLiteral("/first"));
    EXPECT_EQ(entries[1].filePath.size(), longPath.size());
    EXPECT_EQ(entries[2].status, QStringLiteral("Failed\n"));
    EXPECT_EQ(fileDigest(path()), before);
}

TEST_F(HostileLogTest, ReadingStopsAtALineThatIsNotUtf8) {
    // Bytes that no UTF-8 text holds: a lone continuation byte, an overlong slash, a cut
    // sequence. Everything before the bad line is read; the reader does not guess past it.
    for (const QByteArray& bad : {"\x80"_ba, "\xc0\xaf"_ba, "\xe2\x82"_ba, "\xff\xfe"_ba}) {
        write(line("/before") + line("/bad" + bad) + line("/after"));
        const QByteArray before = fileDigest(path());
        const QList<LogEntry> entries = ActivityLog(path()).getLogEntries();
        ASSERT_EQ(entries.size(), 1) << bad.toHex().toStdString();
        EXPECT_EQ(entries[0].filePath, QStringLiteral("/before"));
        EXPECT_EQ(fileDigest(path()), before);
    }
}

TEST_F(HostileLogTest, PathsWithSeparatorsOrLineBreaksCostOnlyTheirOwnLine) {
    ActivityLog log(path());
    log.writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a | b.txt"), {}, QStringLiteral("Success"));
    log.writeToLog(QStringLiteral("Decrypt"), QStringLiteral("/two\nlines.txt"), {}, QStringLiteral("Success"));
    log.writeToLog(QStringLiteral("Decrypt"), QStringLiteral("/fine.txt"), {QStringLiteral("bob")},
                   QStringLiteral("Failed"));
    const QList<LogEntry> entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), 1);
    EXPECT_EQ(entries[0].filePath, QStringLiteral("/fine.txt"));
    EXPECT_EQ(entries[0].recipients, QStringLiteral("bob"));
}

}  // namespace
