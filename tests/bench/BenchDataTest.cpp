// The benchmarks' data must be what the app reads, with enough variety that searching and sorting
// do real work; otherwise their figures measure nothing.
#include <gtest/gtest.h>

#include <QSet>
#include <QTemporaryDir>
#include <algorithm>

#include "BenchData.h"
#include "log/ActivityLog.h"
#include "log/LogQuery.h"

using namespace Qt::Literals::StringLiterals;

TEST(BenchDataTest, TheActivityLogReadsBackWholeAndVaried) {
    constexpr int kLines = 2'000;
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const ActivityLog log(dir.filePath(u"bench.log"_s));
    ASSERT_TRUE(BenchData::writeActivityLog(log.path(), kLines));

    const QList<LogEntry> entries = log.getLogEntries();
    ASSERT_EQ(entries.size(), kLines);
    EXPECT_EQ(LogQuery::search(entries, LogQuery::kFile, BenchData::kLogSearchText).size(),
              BenchData::activityLogHits(kLines));
    EXPECT_EQ(BenchData::activityLogHits(kLines), 111);  // 4, 40-49, 400-499

    const auto encryptions = LogQuery::ofOperation(entries, LogQuery::Operation::Encrypt).size();
    EXPECT_GT(encryptions, kLines / 2);
    EXPECT_LT(encryptions, kLines);
    QSet<QString> dates;
    QSet<QString> statuses;
    for (const LogEntry& e : entries) {
        dates.insert(e.date);
        statuses.insert(e.status.trimmed());
    }
    EXPECT_GT(dates.size(), 300);
    EXPECT_EQ(statuses, (QSet<QString>{u"Success"_s, u"Failed"_s, u"Cancelled"_s}));

    // The file's order is not already the sorted one.
    QList<LogEntry> sorted = entries;
    LogQuery::sort(sorted, LogQuery::Column::Date, true);
    EXPECT_NE(sorted, entries);
    ASSERT_TRUE(BenchData::writeActivityLog(log.path(), kLines));
    EXPECT_EQ(log.getLogEntries(), entries) << "the same log on every run";
}

TEST(BenchDataTest, FilePathsAreDistinctUnsortedAndRepeatable) {
    const QStringList paths = BenchData::filePaths(1'000);
    ASSERT_EQ(paths.size(), 1'000);
    EXPECT_EQ(QSet<QString>(paths.begin(), paths.end()).size(), 1'000);
    EXPECT_FALSE(std::is_sorted(paths.begin(), paths.end()));
    EXPECT_EQ(BenchData::filePaths(1'000), paths);
}
