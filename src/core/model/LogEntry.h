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

    // The words a processing run writes for its operation and outcome.
    static inline const QString kEncryptAction = QStringLiteral("Encrypt");
    static inline const QString kDecryptAction = QStringLiteral("Decrypt");
    static inline const QString kSuccess = QStringLiteral("Success");
    static inline const QString kFailed = QStringLiteral("Failed");
    static inline const QString kCancelled = QStringLiteral("Cancelled");

    friend bool operator==(const LogEntry&, const LogEntry&) = default;
};
