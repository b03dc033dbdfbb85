// The activity log: the line format, reading back with malformed lines skipped, clearing,
// exporting and viewing, directly and through the signed-in user's log path.
#include <gtest/gtest.h>

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUrl>

#include "UserSandbox.h"
#include "log/ActivityLog.h"
#include "storage/NivoGXUtil.h"

namespace {

QByteArray contents(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

class LocaleScope {
public:
    explicit LocaleScope(const QLocale& locale) { QLocale::setDefault(locale); }
    ~LocaleScope() { QLocale::setDefault(m_saved); }
    LocaleScope(const LocaleScope&) = delete;
    LocaleScope& operator=(const LocaleScope&) = delete;

private:
    QLocale m_saved;
};

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
    QString logPath() const { return dir.filePath(QStringLiteral("alice.log")); }
    QTemporaryDir dir;
    ActivityLog log{logPath()};
};

TEST_F(ActivityLogTest, LinesJoinSixFieldsAndRecipientsWithoutSpaces) {
    const QDateTime when(QDate(2024, 3, 5), QTime(7, 8, 9));
    {
        const LocaleScope c(QLocale::c());
        EXPECT_EQ(ActivityLog::formatLine(when, QStringLiteral("Encrypt"),
                                          QStringLiteral("/home/a/My File.txt"),
                                          {QStringLiteral("bob"), QStringLiteral("carol")},
                                          QStringLiteral("Completed")),
                  QStringLiteral("2024-Mar-05 | 07:08:09 | Encrypt | /home/a/My File.txt | "
                                 "bob,carol | Completed\n"));
        EXPECT_EQ(ActivityLog::formatLine(when, QStringLiteral("Decrypt"), QStringLiteral("/f"),
                                          {QStringLiteral("bob")}, QStringLiteral("Failed")),
                  QStringLiteral("2024-Mar-05 | 07:08:09 | Decrypt | /f | bob | Failed\n"));
        EXPECT_EQ(ActivityLog::formatLine(when, QStringLiteral("Decrypt"), QStringLiteral("/f"), {},
                                          QStringLiteral("Cancelled")),
                  QStringLiteral("2024-Mar-05 | 07:08:09 | Decrypt | /f |  | Cancelled\n"));
    }
    const LocaleScope french(QLocale(QLocale::French, QLocale::France));
    EXPECT_TRUE(ActivityLog::formatLine(when, QStringLiteral("Encrypt"), QStringLiteral("/f"), {},
                                        QStringLiteral("Completed"))
                    .startsWith(QStringLiteral("2024-mars-05 | 07:08:09 | ")));
}

TEST_F(ActivityLogTest, WrittenLinesReadBackInOrderAndUnreadableLinesAreSkipped) {
    EXPECT_TRUE(log.getLogEntries().isEmpty());
    log.writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a.txt"),
                   {QStringLiteral("bob"), QStringLiteral("carol")}, QStringLiteral("Completed"));
    log.writeToLog(QStringLiteral("Decrypt"), QStringLiteral("/odd | name.tvf"), {},
                   QStringLiteral("Failed"));
    log.writeToLog(QStringLiteral("Decrypt"), QStringLiteral("/b.tvf"), {},
                   QStringLiteral("Failed"));
    EXPECT_EQ(
        QFileInfo(logPath()).permissions() & (QFileDevice::ReadGroup | QFileDevice::ReadOther),
        QFileDevice::Permissions());

    const QList<LogEntry> entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), 2);
    EXPECT_EQ(entries[0].operationType, QStringLiteral("Encrypt"));
    EXPECT_EQ(entries[0].filePath, QStringLiteral("/a.txt"));
    EXPECT_EQ(entries[0].recipients, QStringLiteral("bob,carol"));
    EXPECT_EQ(entries[0].status, QStringLiteral("Completed\n"));  // the line ending stays
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d{4}-\\S+-\\d{2}$"))
                    .match(entries[0].date)
                    .hasMatch());
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d{2}:\\d{2}:\\d{2}$"))
                    .match(entries[0].time)
                    .hasMatch());
    EXPECT_EQ(entries[1].filePath, QStringLiteral("/b.tvf"));
    EXPECT_EQ(entries[1].recipients, QStringLiteral(""));

    // A last line cut short of its line break still counts.
    QFile file(logPath());
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("2024-Mar-05 | 07:08:09 | Encrypt | /c | d | Cancelled");
    file.close();
    ASSERT_EQ(log.getLogEntries().size(), 3);
    EXPECT_EQ(log.getLogEntries()[2].status, QStringLiteral("Cancelled"));
}

TEST_F(ActivityLogTest, ClearingRemovesTheFileAndTheNextWriteStartsAnew) {
    log.writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {},
                   QStringLiteral("Completed"));
    log.clearLogFile();
    EXPECT_FALSE(QFile::exists(logPath()));
    EXPECT_TRUE(log.getLogEntries().isEmpty());
    log.clearLogFile();
    log.writeToLog(QStringLiteral("Decrypt"), QStringLiteral("/b"), {}, QStringLiteral("Failed"));
    ASSERT_EQ(log.getLogEntries().size(), 1);
    EXPECT_EQ(log.getLogEntries()[0].filePath, QStringLiteral("/b"));

    // A log that cannot be written drops the line and nothing else happens.
    ActivityLog nowhere(dir.filePath(QStringLiteral("missing/alice.log")));
    nowhere.writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {}, QStringLiteral("x"));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("missing"))));
}

TEST_F(ActivityLogTest, ExportCopiesAnExistingLogOnlyAndViewingNeedsOne) {
    const QString copy = dir.filePath(QStringLiteral("alice_20240305070809.log"));
    EXPECT_FALSE(log.exportLogFile(copy));
    EXPECT_FALSE(QFile::exists(copy));

    UrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &catcher, "open");
    log.viewLog();
    EXPECT_TRUE(catcher.opened.isEmpty());

    log.writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {},
                   QStringLiteral("Completed"));
    QFile old(copy);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write(
        "an older export that is much longer than the log itself ............................");
    old.close();
    EXPECT_TRUE(log.exportLogFile(copy));
    EXPECT_EQ(contents(copy), contents(logPath()));

    log.viewLog();
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    EXPECT_EQ(catcher.opened, QList<QUrl>{QUrl::fromLocalFile(logPath())});
}

TEST(UserActivityLogTest, TheSignedInUsersLogIsUsedAndNobodyHasNone) {
    UserSandbox sandbox;
    NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {},
                           QStringLiteral("x"));
    EXPECT_TRUE(NivoGXUtil::getLogEntries().isEmpty());
    EXPECT_FALSE(NivoGXUtil::exportLogFile(QDir(sandbox.root()).filePath(QStringLiteral("e.log"))));

    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    profile.Pfx = "P";
    profile.Cer = "C";
    NivoGXUtil::setNivoProfile(profile);
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {QStringLiteral("bob")},
                           QStringLiteral("Completed"));
    EXPECT_TRUE(QFile::exists(QDir(NivoGXUtil::logFolder()).filePath(QStringLiteral("Alice.log"))));
    ASSERT_EQ(NivoGXUtil::getLogEntries().size(), 1);
    EXPECT_EQ(NivoGXUtil::getLogEntries()[0].recipients, QStringLiteral("bob"));
    const QString exported = QDir(sandbox.root()).filePath(QStringLiteral("e.log"));
    EXPECT_TRUE(NivoGXUtil::exportLogFile(exported));
    EXPECT_EQ(contents(exported), contents(NivoGXUtil::logPath()));
    NivoGXUtil::clearLogFile();
    EXPECT_TRUE(NivoGXUtil::getLogEntries().isEmpty());
}

}  // namespace

#include "ActivityLogTest.moc"
