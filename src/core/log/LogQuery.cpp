#include "log/LogQuery.h"

#include <QDate>
#include <QLocale>
#include <QTime>
#include <algorithm>

#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

const QString LogQuery::kDate = u"Date"_s;
const QString LogQuery::kTime = u"Time"_s;
const QString LogQuery::kType = u"Type"_s;
const QString LogQuery::kFile = u"File"_s;
const QString LogQuery::kRecipient = u"Recipient"_s;
const QString LogQuery::kStatus = u"Status"_s;

namespace {

// As the log writes them: the month abbreviated by the current locale.
const QString kDateFormat = u"yyyy-MMM-dd"_s;
const QString kTimeFormat = u"HH:mm:ss"_s;

// Lower case without accents, so that "cafe" finds "Café".
QString folded(const QString& text) {
    const QString decomposed = text.normalized(QString::NormalizationForm_KD);
    QString result;
    result.reserve(decomposed.size());
    for (const QChar c : decomposed) {
        if (c.category() != QChar::Mark_NonSpacing) {
            result.append(c);
        }
    }
    return result.toCaseFolded();
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

int compareText(const QString& a, const QString& b) {
    return sign(QString::compare(a, b, Qt::CaseSensitive));
}

// Text that does not parse is "nothing": equal to nothing, before every real value.
template <typename T>
int compareParsed(const T& a, const T& b) {
    if (!a.isValid() || !b.isValid()) {
        return int{a.isValid()} - int{b.isValid()};
    }
    return a < b ? -1 : (b < a ? 1 : 0);
}

QDate parsedDate(const LogEntry& e) {
    return QLocale().toDate(e.date, kDateFormat);
}
QTime parsedTime(const LogEntry& e) {
    return QLocale().toTime(e.time, kTimeFormat);
}
int byDate(const LogEntry& a, const LogEntry& b) {
    return compareParsed(parsedDate(a), parsedDate(b));
}
int byTime(const LogEntry& a, const LogEntry& b) {
    return compareParsed(parsedTime(a), parsedTime(b));
}

// The first key that tells the entries apart decides.
template <typename... Keys>
int firstDifference(const LogEntry& a, const LogEntry& b, Keys... keys) {
    int result = 0;
    ((result = keys(a, b), result != 0) || ...);
    return result;
}

int ascending(const LogEntry& a, const LogEntry& b, LogQuery::Column column) {
    const auto path = [](const LogEntry& x, const LogEntry& y) {
        return compareText(x.filePath, y.filePath);
    };
    using C = LogQuery::Column;
    switch (column) {
        case C::Date:
            return firstDifference(a, b, byDate, byTime, path);
        case C::Time:
            return firstDifference(a, b, byTime, byDate, path);
        case C::Type:
            return firstDifference(
                a, b,
                [](const LogEntry& x, const LogEntry& y) {
                    return compareText(x.operationType, y.operationType);
                },
                byDate, byTime, path);
        case C::File:
            return firstDifference(a, b, path, byDate, byTime);
        case C::Recipient:
            return firstDifference(
                a, b,
                [](const LogEntry& x, const LogEntry& y) {
                    return compareText(x.recipients, y.recipients);
                },
                byDate, byTime, path);
        case C::Status:
            return firstDifference(
                a, b,
                [](const LogEntry& x, const LogEntry& y) {
                    return compareText(x.status, y.status);
                },
                byDate, byTime, path);
        case C::None:
            break;
    }
    return firstDifference(a, b, byDate, byTime, path);
}

int descending(const LogEntry& a, const LogEntry& b, LogQuery::Column column) {
    using C = LogQuery::Column;
    // Two quirks users have long seen are kept: dates that differ are ordered by their text
    // (months by abbreviation), and within one status differing dates stay ascending.
    if (column == C::Date && byDate(a, b) != 0) {
        return compareText(a.date, b.date) > 0 ? -1 : 1;
    }
    if (column == C::Status && compareText(a.status, b.status) == 0 && byDate(a, b) != 0) {
        return byDate(a, b);
    }
    // Never "equal": a full tie comes after.
    return ascending(a, b, column) > 0 ? -1 : 1;
}

}  // namespace

std::optional<LogQuery::Column> LogQuery::columnNamed(const QString& name) {
    const std::pair<const QString&, Column> names[] = {
        {kDate, Column::Date}, {kTime, Column::Time},           {kType, Column::Type},
        {kFile, Column::File}, {kRecipient, Column::Recipient}, {kStatus, Column::Status}};
    for (const auto& [text, column] : names) {
        if (text == name) {
            return column;
        }
    }
    return std::nullopt;
}

QList<LogEntry> LogQuery::ofOperation(const QList<LogEntry>& entries, Operation operation) {
    if (operation == Operation::All) {
        return entries;
    }
    // The words the processing run writes.
    const QString& word = operation == Operation::Encrypt ? ProcessController::kEncryptAction
                                                          : ProcessController::kDecryptAction;
    QList<LogEntry> result;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(result),
                 [&word](const LogEntry& e) { return e.operationType == word; });
    return result;
}

QList<LogEntry> LogQuery::search(const QList<LogEntry>& entries, const QString& column,
                                 const QString& text) {
    if (text.isEmpty()) {
        return entries;
    }
    QString LogEntry::*field = &LogEntry::filePath;
    if (column == kDate) {
        field = &LogEntry::date;
    } else if (column == kTime) {
        field = &LogEntry::time;
    } else if (column == kRecipient) {
        field = &LogEntry::recipients;
    } else if (column == kStatus) {
        field = &LogEntry::status;
    }
    const QString needle = folded(text);
    QList<LogEntry> result;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(result),
                 [&](const LogEntry& e) { return folded(e.*field).contains(needle); });
    return result;
}

int LogQuery::compare(const LogEntry& a, const LogEntry& b, Column column, bool ascendingOrder) {
    if (ascendingOrder || column == Column::None) {
        return ascending(a, b, column);
    }
    return descending(a, b, column);
}

void LogQuery::sort(QList<LogEntry>& entries, Column column, bool ascendingOrder) {
    // The descending quirks do not make a strict order; a merge sort stays within bounds
    // whatever the comparator answers.
    std::stable_sort(entries.begin(), entries.end(),
                     [column, ascendingOrder](const LogEntry& a, const LogEntry& b) {
                         return compare(a, b, column, ascendingOrder) < 0;
                     });
}
