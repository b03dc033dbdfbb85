// Activity logs that someone else wrote to: a line that is not UTF-8, a line of 10 MB, file paths
// that carry the separators of the format or controls, which are escaped. Reading never changes the file, and what can be read
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

TEST_F(HostileLogTest, ControlsAreEscapedSoNoNameForgesALineAndSeparatorsCostTheirOwn) {
    ActivityLog log(path());
    log.writeToLog(u"Encrypt"_s, u"/a | b.txt"_s, {}, u"Success"_s);
    // A name made to look like a second event.
    log.writeToLog(u"Decrypt"_s,
                   u"/a\n2026-Jan-01 | 00:00:00 | Encrypt | /forged | mallory | Success"_s, {},
                   u"Failed"_s);
    // Every kind of control, and a backslash typed in the name.
    log.writeToLog(u"Decrypt"_s, u"/b\nc\rd\te\x1b[31m\\n\u0085\u2028\u202e.txt"_s,
                   {u"bob\n"_s, u"carol"_s}, u"Failed"_s);
    EXPECT_EQ(fileBytes(path()).count('\n'), 3);
    // Lines with " | " in a field stay unreadable; nothing forged is read.
    const QList<LogEntry> entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), 1);
    // The backslash is doubled, so an escape and the same characters in a name differ.
    EXPECT_EQ(entries[0].filePath,
              u"/b\\nc\\rd\\te\\x1b[31m\\\\n\\u0085\\u2028\\u202e.txt"_s);
    EXPECT_EQ(entries[0].recipients, u"bob\\n,carol"_s);
}

}  // namespace
