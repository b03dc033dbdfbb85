#pragma once

#include <QString>

// One line of the activity log, each field exactly as the file holds it (the status keeps the
// line's ending).
struct LogEntry {
    QString date;
    QString time;
    QString operationType;
    QString filePath;
    QString recipients;
    QString status;

    friend bool operator==(const LogEntry&, const LogEntry&) = default;
};
