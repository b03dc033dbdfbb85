#include "log/LogQuery.h"

#include <QDate>
#include <QHash>
#include <QLocale>
#include <QTime>
#include <algorithm>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

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

// An entry with its date and time parsed: the day and millisecond numbers, or kUnparsed for
// text that does not parse, which is "nothing": equal to nothing, before every real value.
struct Parsed {
    static constexpr qint64 kUnparsed = std::numeric_limits<qint64>::min();

    const LogEntry* entry;
    qint64 date;
    qint64 time;
};

qint64 dateKey(const QLocale& locale, const QString& text) {
    const QDate date = locale.toDate(text, kDateFormat);
    return date.isValid() ? date.toJulianDay() : Parsed::kUnparsed;
}
qint64 timeKey(const QLocale& locale, const QString& text) {
    const QTime time = locale.toTime(text, kTimeFormat);
    return time.isValid() ? time.msecsSinceStartOfDay() : Parsed::kUnparsed;
}

// What timeKey() gives for a time written the way the log writes it, "HH:mm:ss" in ASCII digits
// within range; none for any other text, which needs the locale's parser. Only for locales whose
// digits are ASCII (asciiDigits()).
std::optional<qint64> plainTimeKey(QStringView text) {
    if (text.size() != 8 || text[2] != u':' || text[5] != u':') {
        return std::nullopt;
    }
    const auto twoDigits = [text](qsizetype at) {
        const char16_t high = text[at].unicode();
        const char16_t low = text[at + 1].unicode();
        if (high < u'0' || high > u'9' || low < u'0' || low > u'9') {
            return -1;
        }
        return (high - u'0') * 10 + (low - u'0');
    };
    const int hours = twoDigits(0);
    const int minutes = twoDigits(3);
    const int seconds = twoDigits(6);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 || seconds > 59) {
        return std::nullopt;
    }
    return ((hours * 60 + minutes) * 60 + seconds) * qint64{1000};
}

bool asciiDigits(const QLocale& locale) {
    return locale.zeroDigit() == u"0"_s;
}
Parsed parsed(const QLocale& locale, const LogEntry& e) {
    return {&e, dateKey(locale, e.date), timeKey(locale, e.time)};
}

int threeWay(qint64 a, qint64 b) {
    return (a > b) - (a < b);
}
int byDate(const Parsed& a, const Parsed& b) {
    return threeWay(a.date, b.date);
}
int byTime(const Parsed& a, const Parsed& b) {
    return threeWay(a.time, b.time);
}
template <QString LogEntry::*field>
int byText(const Parsed& a, const Parsed& b) {
    return compareText(a.entry->*field, b.entry->*field);
}

// The first key that tells the entries apart decides.
template <typename... Keys>
int firstDifference(const Parsed& a, const Parsed& b, Keys... keys) {
    int result = 0;
    ((result = keys(a, b), result != 0) || ...);
    return result;
}

int ascending(const Parsed& a, const Parsed& b, LogQuery::Column column) {
    constexpr auto path = byText<&LogEntry::filePath>;
    using C = LogQuery::Column;
    switch (column) {
        case C::Date:
            return firstDifference(a, b, byDate, byTime, path);
        case C::Time:
            return firstDifference(a, b, byTime, byDate, path);
        case C::Type:
            return firstDifference(a, b, byText<&LogEntry::operationType>, byDate, byTime, path);
        case C::File:
            return firstDifference(a, b, path, byDate, byTime);
        case C::Recipient:
            return firstDifference(a, b, byText<&LogEntry::recipients>, byDate, byTime, path);
        case C::Status:
            return firstDifference(a, b, byText<&LogEntry::status>, byDate, byTime, path);
        case C::None:
            break;
    }
    return firstDifference(a, b, byDate, byTime, path);
}

int descending(const Parsed& a, const Parsed& b, LogQuery::Column column) {
    using C = LogQuery::Column;
    // Two quirks users have long seen are kept: dates that differ are ordered by their text
    // (months by abbreviation), and within one status differing dates stay ascending.
    if (column == C::Date && byDate(a, b) != 0) {
        return compareText(a.entry->date, b.entry->date) > 0 ? -1 : 1;
    }
    if (column == C::Status && byText<&LogEntry::status>(a, b) == 0 && byDate(a, b) != 0) {
        return byDate(a, b);
    }
    // Never "equal": a full tie comes after.
    return ascending(a, b, column) > 0 ? -1 : 1;
}

int compareParsed(const Parsed& a, const Parsed& b, LogQuery::Column column,
                  bool ascendingOrder) {
    if (ascendingOrder || column == LogQuery::Column::None) {
        return ascending(a, b, column);
    }
    return descending(a, b, column);
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
    const QLocale locale;
    return compareParsed(parsed(locale, a), parsed(locale, b), column, ascendingOrder);
}

void LogQuery::sort(QList<LogEntry>& entries, Column column, bool ascendingOrder) {
    if (entries.size() < 2) {
        return;
    }
    // Each distinct date and time text is parsed once (a log repeats few of them), not at every
    // comparison; the comparisons themselves are those of compare().
    const QLocale locale;
    QHash<QString, qint64> dates;
    QHash<QString, qint64> times;
    const bool plain = asciiDigits(locale);
    std::vector<Parsed> items;
    items.reserve(static_cast<std::size_t>(entries.size()));
    for (const LogEntry& e : std::as_const(entries)) {
        auto date = dates.constFind(e.date);
        if (date == dates.cend()) {
            date = dates.insert(e.date, dateKey(locale, e.date));
        }
        // Times are nearly all distinct and nearly all plain: most skip the locale's parser.
        std::optional<qint64> time = plain ? plainTimeKey(e.time) : std::nullopt;
        if (!time) {
            auto known = times.constFind(e.time);
            if (known == times.cend()) {
                known = times.insert(e.time, timeKey(locale, e.time));
            }
            time = *known;
        }
        items.push_back({&e, *date, *time});
    }
    // The descending quirks do not make a strict order; a merge sort stays within bounds
    // whatever the comparator answers.
    std::stable_sort(items.begin(), items.end(),
                     [column, ascendingOrder](const Parsed& a, const Parsed& b) {
                         return compareParsed(a, b, column, ascendingOrder) < 0;
                     });
    QList<LogEntry> sorted;
    sorted.reserve(entries.size());
    for (const Parsed& item : items) {
        sorted.append(*item.entry);
    }
    entries = std::move(sorted);
}
