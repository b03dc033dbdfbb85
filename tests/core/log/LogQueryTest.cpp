#include <gtest/gtest.h>

#include <QLocale>

#include "log/LogQuery.h"

using namespace Qt::Literals::StringLiterals;

namespace {

LogEntry entry(const QString& date, const QString& time, const QString& type, const QString& path,
               const QString& status = u"Success\n"_s) {
    return {date, time, type, path, u"bob,alice"_s, status};
}

QStringList paths(const QList<LogEntry>& entries) {
    QStringList result;
    for (const LogEntry& e : entries) {
        result << e.filePath;
    }
    return result;
}

class LogQueryTest : public ::testing::Test {
protected:
    // Month abbreviations are read as the log writes them, in the current locale.
    void SetUp() override {
        m_saved = QLocale();
        QLocale::setDefault(QLocale::c());
    }
    void TearDown() override { QLocale::setDefault(m_saved); }

    QLocale m_saved;
};

TEST_F(LogQueryTest, SearchIgnoresCaseAndAccentsInTheChosenColumnOnly) {
    const QList<LogEntry> log{
        entry(u"2026-Mar-01"_s, u"10:00:00"_s, u"Encrypt"_s, u"/x/Café.txt"_s),
        entry(u"2026-Mar-02"_s, u"11:00:00"_s, u"Decrypt"_s, u"/x/b.txt"_s, u"Failed\n"_s)};
    EXPECT_EQ(paths(LogQuery::search(log, LogQuery::kFile, u"cafe"_s)),
              QStringList{u"/x/Café.txt"_s});
    EXPECT_EQ(paths(LogQuery::search(log, LogQuery::kStatus, u"failed"_s)),
              QStringList{u"/x/b.txt"_s});
    EXPECT_EQ(paths(LogQuery::search(log, LogQuery::kDate, u"mar-02"_s)),
              QStringList{u"/x/b.txt"_s});
    // A column the search does not offer searches the path.
    EXPECT_EQ(paths(LogQuery::search(log, u"Type"_s, u"decrypt"_s)), QStringList());
    EXPECT_EQ(LogQuery::search(log, LogQuery::kFile, QString()).size(), 2);
    EXPECT_EQ(paths(LogQuery::ofOperation(log, LogQuery::Operation::Decrypt)),
              QStringList{u"/x/b.txt"_s});
}

TEST_F(LogQueryTest, SortsByDateThenTimeThenPathAndKeepsTheDescendingQuirks) {
    QList<LogEntry> log{entry(u"2026-Feb-01"_s, u"09:00:00"_s, u"Encrypt"_s, u"feb"_s),
                        entry(u"2026-Jan-15"_s, u"09:00:00"_s, u"Encrypt"_s, u"jan-b"_s),
                        entry(u"2026-Jan-15"_s, u"08:00:00"_s, u"Encrypt"_s, u"jan-a"_s),
                        entry(u"2025-Dec-31"_s, u"23:00:00"_s, u"Encrypt"_s, u"dec"_s)};
    LogQuery::sort(log, LogQuery::Column::Date, true);
    EXPECT_EQ(paths(log), (QStringList{u"dec"_s, u"jan-a"_s, u"jan-b"_s, u"feb"_s}));
    // Descending, differing dates go by their text: "2026-Jan" sorts after "2026-Feb".
    LogQuery::sort(log, LogQuery::Column::Date, false);
    EXPECT_EQ(paths(log), (QStringList{u"jan-b"_s, u"jan-a"_s, u"feb"_s, u"dec"_s}));

    // Within one status, differing dates stay ascending even when sorting descending.
    LogQuery::sort(log, LogQuery::Column::Status, false);
    EXPECT_EQ(paths(log), (QStringList{u"dec"_s, u"jan-b"_s, u"jan-a"_s, u"feb"_s}));

    EXPECT_EQ(LogQuery::compare(log[0], log[0], LogQuery::Column::File, false), 1)
        << "a descending comparator never reports a tie";
    // Unreadable dates are harmless.
    log.append(entry(u"garbage"_s, u"??"_s, u"Decrypt"_s, u"bad"_s));
    LogQuery::sort(log, LogQuery::Column::Date, true);
    EXPECT_EQ(log.constFirst().filePath, u"bad"_s);
}

}  // namespace
