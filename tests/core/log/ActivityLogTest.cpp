// The activity log: the line format, reading back with unreadable lines skipped, clearing,
// exporting and viewing, and the signed-in user's log path.
#include <gtest/gtest.h>

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QTemporaryDir>
#include <QUrl>

#include "TestFiles.h"
#include "UserSandbox.h"
#include "log/ActivityLog.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Records what the desktop would have been asked to open.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened << url; }
};

class ActivityLogTest : public ::testing::Test {
protected:
    void write(const QString& type, const QString& file, const QStringList& recipients,
               const QString& status) {
        log.writeToLog(type, file, recipients, status);
    }
    QString logPath() const { return dir.filePath(QStringLiteral("alice.log")); }
    QTemporaryDir dir;
    ActivityLog log{logPath()};
};

TEST_F(ActivityLogTest, LinesJoinSixFieldsAndRecipientsWithoutSpaces) {
    const QDateTime when(QDate(2024, 3, 5), QTime(7, 8, 9));
    const auto line = [&when](const QStringList& recipients) {
        return ActivityLog::formatLine(when, QStringLiteral("Encrypt"), QStringLiteral("/My a.txt"),
                                       recipients, QStringLiteral("Completed"));
    };
    const QLocale saved;
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(
        line({QStringLiteral("bob"), QStringLiteral("carol")}),
        QStringLiteral("2024-Mar-05 | 07:08:09 | Encrypt | /My a.txt | bob,carol | Completed\n"));
    EXPECT_EQ(line({QStringLiteral("bob")}),
              QStringLiteral("2024-Mar-05 | 07:08:09 | Encrypt | /My a.txt | bob | Completed\n"));
    EXPECT_EQ(line({}),
              QStringLiteral("2024-Mar-05 | 07:08:09 | Encrypt | /My a.txt |  | Completed\n"));
    QLocale::setDefault(QLocale(QLocale::French, QLocale::France));
    EXPECT_TRUE(line({}).startsWith(QStringLiteral("2024-mars-05 | ")));
    QLocale::setDefault(saved);
}

TEST_F(ActivityLogTest, WrittenLinesReadBackInOrderAndUnreadableLinesAreSkipped) {
    EXPECT_TRUE(log.getLogEntries().isEmpty());
    write(QStringLiteral("Encrypt"), QStringLiteral("/a.txt"),
          {QStringLiteral("bob"), QStringLiteral("carol")}, QStringLiteral("Completed"));
    write(QStringLiteral("Decrypt"), QStringLiteral("/odd | name.tvf"), {},
          QStringLiteral("Failed"));
    write(QStringLiteral("Decrypt"), QStringLiteral("/b.tvf"), {}, QStringLiteral("Failed"));
    EXPECT_EQ(
        QFileInfo(logPath()).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther),
        QFileDevice::Permissions());

    QList<LogEntry> entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].operationType, QStringLiteral("Encrypt"));
    EXPECT_EQ(entries[0].recipients, QStringLiteral("bob,carol"));
    EXPECT_EQ(entries[0].status, QStringLiteral("Completed\n"));  // the line ending stays
    EXPECT_EQ(entries[1].filePath, QStringLiteral("/b.tvf"));

    // A last line cut short of its line break still counts.
    QFile file(logPath());
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("2024-Mar-05 | 07:08:09 | Encrypt | /c | d | Cancelled");
    file.close();
    entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), 3);
    EXPECT_EQ(entries[2], (LogEntry{QStringLiteral("2024-Mar-05"), QStringLiteral("07:08:09"),
                                    QStringLiteral("Encrypt"), QStringLiteral("/c"),
                                    QStringLiteral("d"), QStringLiteral("Cancelled")}));
}

// Lines of odd shapes are cut into fields as splitting at every " | " cuts them; only those of
// exactly six pieces are entries.
TEST_F(ActivityLogTest, FieldsAreThePiecesBetweenSeparators) {
    const QStringList lines{
        u"d | t | Encrypt | /a | r | s\n"_s,      u"d |  | Encrypt | /a |  | \n"_s,
        u" |  |  |  |  | \n"_s,                   u" | | | | | | | | | | | | \n"_s,
        u"d | t | Encrypt | /a | r\n"_s,          u"d | t | Encrypt | /a | r | s | x\n"_s,
        u"d | t | Encrypt | /a | r | s | \n"_s,    u"\n"_s,
        u"d | t | Encrypt | /a | r | s |\n"_s,     u"d | t | Encrypt | /a || r | s\n"_s,
        u"d  |  t | E | /é | r |  | s\n"_s,       u"d | t | Decrypt | /a | r | s"_s};
    ASSERT_TRUE(putFile(logPath(), lines.join(QString()).toUtf8()));
    QList<LogEntry> expected;
    for (const QString& line : lines) {
        const QStringList pieces = line.split(u" | "_s);
        if (pieces.size() == 6) {
            expected.append({pieces[0], pieces[1], pieces[2], pieces[3], pieces[4], pieces[5]});
        }
    }
    ASSERT_EQ(expected.size(), 5);
    EXPECT_EQ(log.getLogEntries(), expected);
}

TEST_F(ActivityLogTest, ClearingRemovesTheFileAndTheNextWriteStartsAnew) {
    write(QStringLiteral("Encrypt"), QStringLiteral("/a"), {}, QStringLiteral("Completed"));
    log.clearLogFile();
    EXPECT_TRUE(log.getLogEntries().isEmpty());
    write(QStringLiteral("Decrypt"), QStringLiteral("/b"), {}, QStringLiteral("Failed"));
    ASSERT_EQ(log.getLogEntries().size(), 1);
    EXPECT_EQ(log.getLogEntries()[0].filePath, QStringLiteral("/b"));
}

TEST_F(ActivityLogTest, ExportAndViewingNeedAnExistingLog) {
    const QString copy = dir.filePath(QStringLiteral("alice_20240305070809.log"));
    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &catcher, "open");
    EXPECT_FALSE(log.exportLogFile(copy));
    EXPECT_FALSE(QFile::exists(copy));
    log.viewLog();
    EXPECT_TRUE(catcher.opened.isEmpty());

    write(QStringLiteral("Encrypt"), QStringLiteral("/a"), {}, QStringLiteral("Completed"));
    ASSERT_TRUE(putFile(copy, QByteArray(1000, '#')));  // an earlier, longer export of that name
    EXPECT_TRUE(log.exportLogFile(copy));
    EXPECT_EQ(fileBytes(copy), fileBytes(logPath()));
    log.viewLog();
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    EXPECT_EQ(catcher.opened, QList<QUrl>{QUrl::fromLocalFile(logPath())});
}

TEST(UserActivityLogTest, TheSignedInUsersLogIsUsedAndBeforeSignInThereIsNone) {
    UserSandbox sandbox;
    NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {},
                           QStringLiteral("x"));
    EXPECT_TRUE(NivoGXUtil::getLogEntries().isEmpty());
    EXPECT_FALSE(NivoGXUtil::exportLogFile(QDir(sandbox.root()).filePath(QStringLiteral("e.log"))));

    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    ASSERT_TRUE(NivoGXUtil::setNivoProfile(profile));
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {QStringLiteral("bob")},
                           QStringLiteral("Completed"));
    EXPECT_EQ(NivoGXUtil::getLogEntries().size(), 1);
    EXPECT_TRUE(QFile::exists(QDir(NivoGXUtil::logFolder()).filePath(QStringLiteral("alice.log"))));
    NivoGXUtil::clearLogFile();
    EXPECT_TRUE(NivoGXUtil::getLogEntries().isEmpty());
}

}  // namespace

#include "ActivityLogTest.moc"
