#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include "model/LogEntry.h"

// The user's activity log: one line per encryption or decryption, appended and never rewritten,
// UTF-8 without a header. Fields are joined with " | "; control characters in them are written as
// visible escapes (see VisibleText), so one event is always one line, but a line whose fields
// hold " | " cannot be read back and is skipped by the reader. Nothing here
// reports a failure: a line that cannot be written is dropped, a missing file has no entries.
class ActivityLog {
public:
    explicit ActivityLog(QString path) : m_path(std::move(path)) {}

    [[nodiscard]] const QString& path() const noexcept { return m_path; }

    // Appends a line stamped with the current local date and time.
    void writeToLog(const QString& operationType, const QString& filePath,
                    const QStringList& recipients, const QString& status) const;
    // The entries in file order; lines without exactly six fields are left out.
    [[nodiscard]] QList<LogEntry> getLogEntries() const;
    // Opens the log in the desktop's default application, when there is one.
    void viewLog() const;
    // Copies the log to `destination`, where it appears only once complete. False when there is
    // no log, or, with the reason in `error` when given, when the copy failed.
    [[nodiscard]] bool exportLogFile(const QString& destination, QString* error = nullptr) const;
    void clearLogFile() const;

    // The line written for an event at `when`, its month abbreviated as the current locale does.
    [[nodiscard]] static QString formatLine(const QDateTime& when, const QString& operationType,
                                            const QString& filePath, const QStringList& recipients,
                                            const QString& status);

private:
    QString m_path;
};
