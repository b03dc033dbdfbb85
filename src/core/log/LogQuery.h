#pragma once

#include <QList>
#include <QString>
#include <optional>

#include "model/LogEntry.h"

// The log viewer's rules over the entries of the activity log, for the window and the
// command-line tool alike: the filter by operation, the search in one column and the sort by
// any column in either direction.
class LogQuery {
public:
    LogQuery() = delete;

    // Column names as the viewer shows them; the search and the sort take these.
    static const QString kDate;
    static const QString kTime;
    static const QString kType;
    static const QString kFile;
    static const QString kRecipient;
    static const QString kStatus;

    enum class Column { None = 0, Date, Time, Type, File, Recipient, Status };
    enum class Operation { All, Encrypt, Decrypt };

    // The column of a viewer name; none for any other text.
    [[nodiscard]] static std::optional<Column> columnNamed(const QString& name);

    // Entries of one operation, in file order.
    [[nodiscard]] static QList<LogEntry> ofOperation(const QList<LogEntry>& entries,
                                                     Operation operation);
    // Entries whose field in `column` contains `text`, ignoring case and accents; the file path
    // for any column the search does not offer. An empty text keeps every entry.
    [[nodiscard]] static QList<LogEntry> search(const QList<LogEntry>& entries,
                                                const QString& column, const QString& text);
    // Sorts by `column`; Column::None is the default order (date, time, path; ascending only).
    static void sort(QList<LogEntry>& entries, Column column, bool ascending);

    // -1, 0 or 1, as the viewer's comparator of that column answers for `a` against `b`.
    [[nodiscard]] static int compare(const LogEntry& a, const LogEntry& b, Column column,
                                     bool ascending);
};
