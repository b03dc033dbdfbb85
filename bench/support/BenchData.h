#pragma once

#include <QString>
#include <QStringList>

// Data of the shape a long-time user builds up, the same on every run (fixed seeds), so that
// figures from two builds compare.
class BenchData {
public:
    // Text that kActivityLogHits of the log's lines hold in their file path (any case).
    static const QString kLogSearchText;

    // Writes an activity log of `lines` lines: dates spread over two years, both operations, one
    // to three recipients, mostly successes. Returns false when the file cannot be written.
    static bool writeActivityLog(const QString& path, int lines);
    // How many of `lines` lines kLogSearchText finds.
    [[nodiscard]] static int activityLogHits(int lines);

    // `count` distinct paths in a few dozen folders, in no particular order.
    [[nodiscard]] static QStringList filePaths(int count);
};
