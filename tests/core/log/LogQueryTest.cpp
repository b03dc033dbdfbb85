#include <gtest/gtest.h>

#include <QDate>
#include <QLocale>
#include <QTime>
#include <algorithm>
#include <random>

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

// --- the sort and the search against plain references over a varied log ---

namespace {

// A log of the kinds of lines a long-used viewer holds: many equal dates and times, texts that
// do not parse, mixed case, accents, repeated paths, Encrypt/Decrypt and other words. The month
// names come from `locale`, with some from another language mixed in.
QList<LogEntry> variedLog(int count, const QLocale& locale) {
    std::mt19937 random(20260314);
    const auto pick = [&random](int n) {
        return static_cast<int>(random() % static_cast<unsigned>(n));
    };
    const QLocale german(QLocale::German, QLocale::Germany);
    const QStringList oddDates{u""_s, u"garbage"_s, u"2026-Foo-01"_s, u"2026-mar-01"_s,
                               u"2026-Mär-05"_s, u"2026-Feb-30"_s};
    const QStringList oddTimes{u""_s, u"??"_s, u"25:00:00"_s, u"7:5:3"_s, u"12:00"_s};
    const QStringList types{u"Encrypt"_s, u"Decrypt"_s, u"encrypt"_s, u"Other"_s};
    const QStringList names{u"Report"_s, u"report"_s, u"Café"_s, u"cafe"_s, u"CAFÉ"_s,
                            u"Ärger"_s, u"zeta"_s, u"Ωmega"_s, u"naïve"_s};
    const QStringList recipients{u""_s, u"bob"_s, u"bob,alice"_s, u"Alice"_s, u"élodie"_s};
    const QStringList statuses{u"Success\n"_s, u"Failed\n"_s, u"Cancelled\n"_s, u"success\n"_s,
                               u"Failed"_s};
    QList<LogEntry> log;
    for (int i = 0; i < count; ++i) {
        const QDate day = QDate(2025, 1, 1).addDays(pick(500));
        QString date;
        if (pick(10) == 0) {
            date = oddDates.at(pick(static_cast<int>(oddDates.size())));
        } else {
            date = (pick(8) == 0 ? german : locale).toString(day, u"yyyy-MMM-dd"_s);
        }
        QString time = pick(10) == 0 ? oddTimes.at(pick(static_cast<int>(oddTimes.size())))
                                     : QTime(pick(24), pick(3) * 20, pick(2) * 30)
                                           .toString(u"HH:mm:ss"_s);
        const QString path = u"/home/u/%1/%2 %3.txt"_s.arg(pick(3)).arg(
            names.at(pick(static_cast<int>(names.size())))).arg(pick(40));
        log.append({date, time, types.at(pick(static_cast<int>(types.size()))), path,
                    recipients.at(pick(static_cast<int>(recipients.size()))),
                    statuses.at(pick(static_cast<int>(statuses.size())))});
    }
    return log;
}

// The order a merge sort gives with the viewer's comparator of each pair, nothing cached.
QList<LogEntry> referenceSort(QList<LogEntry> entries, LogQuery::Column column, bool ascending) {
    std::stable_sort(entries.begin(), entries.end(),
                     [column, ascending](const LogEntry& a, const LogEntry& b) {
                         return LogQuery::compare(a, b, column, ascending) < 0;
                     });
    return entries;
}

// Lower case, accents taken off, then a substring test: what "contains, ignoring case and
// accents" means, one entry at a time.
bool referenceContains(const QString& haystack, const QString& needle) {
    const auto fold = [](const QString& text) {
        QString result;
        for (const QChar c : text.normalized(QString::NormalizationForm_KD)) {
            if (c.category() != QChar::Mark_NonSpacing) {
                result.append(c);
            }
        }
        return result.toCaseFolded();
    };
    return fold(haystack).contains(fold(needle));
}

}  // namespace

TEST_F(LogQueryTest, EverySortGivesTheOrderOfAPlainMergeSortWithTheComparator) {
    using C = LogQuery::Column;
    // In German, those month abbreviations parse and the English ones mostly do not.
    for (const QLocale& locale : {QLocale::c(), QLocale(QLocale::German, QLocale::Germany)}) {
        QLocale::setDefault(locale);
        const QList<LogEntry> log = variedLog(1500, locale);
        for (const C column :
             {C::None, C::Date, C::Time, C::Type, C::File, C::Recipient, C::Status}) {
            for (const bool ascending : {true, false}) {
                QList<LogEntry> sorted = log;
                LogQuery::sort(sorted, column, ascending);
                EXPECT_TRUE(sorted == referenceSort(log, column, ascending))
                    << qPrintable(locale.name()) << " column " << int(column)
                    << (ascending ? " ascending" : " descending");
            }
        }
    }
    // Nothing to sort, and one entry.
    QList<LogEntry> none;
    LogQuery::sort(none, C::Date, false);
    EXPECT_TRUE(none.isEmpty());
    const QList<LogEntry> single = variedLog(1, QLocale());
    QList<LogEntry> one = single;
    LogQuery::sort(one, C::Status, false);
    EXPECT_TRUE(one == single);
}

TEST_F(LogQueryTest, SearchFindsWhatAnEntryByEntryFoldedMatchFinds) {
    const QList<LogEntry> log = variedLog(600, QLocale());
    const QStringList needles{u"cafe"_s,  u"CAFÉ"_s, u"é"_s,       u"arger"_s,   u"ωMEGA"_s,
                              u"naive"_s, u"REP"_s,  u"t 1"_s,     u"/home/u/2"_s, u"ß"_s,
                              u"fai"_s,   u"\n"_s,   u"mär"_s,     u"2025-"_s,   u"bob,a"_s,
                              u"zz"_s};
    const std::pair<QString, QString LogEntry::*> columns[] = {
        {LogQuery::kDate, &LogEntry::date},     {LogQuery::kTime, &LogEntry::time},
        {LogQuery::kFile, &LogEntry::filePath}, {LogQuery::kRecipient, &LogEntry::recipients},
        {LogQuery::kStatus, &LogEntry::status}, {LogQuery::kType, &LogEntry::filePath}};
    for (const auto& [column, field] : columns) {
        for (const QString& needle : needles) {
            QList<LogEntry> expected;
            for (const LogEntry& e : log) {
                if (referenceContains(e.*field, needle)) {
                    expected.append(e);
                }
            }
            EXPECT_TRUE(LogQuery::search(log, column, needle) == expected)
                << qPrintable(column) << " / " << qPrintable(needle);
        }
    }
}
