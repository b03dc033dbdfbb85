#include "log/LogQuery.h"

#include <QDate>
#include <QHash>
#include <QLocale>
#include <QTime>
#include <algorithm>
#include <limits>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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

bool isAscii(QStringView text) {
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

int compareText(QStringView a, QStringView b) {
    return sign(a.compare(b, Qt::CaseSensitive));
}

// An entry ready for comparing: its date and time parsed into day and millisecond numbers, or
// kUnparsed for text that does not parse, which is "nothing": equal to nothing, before every
// real value; the texts it is compared by, at hand without going through the entry; and the
// place of its date text among the others' (for the descending Date order).
struct Parsed {
    static constexpr qint64 kUnparsed = std::numeric_limits<qint64>::min();

    const LogEntry* entry;
    QStringView text;  // the column's text (Type, File, Recipient, Status), otherwise the path
    QStringView path;
    qint64 date;
    qint64 time;
    qint64 dateText;
};

qint64 dateKey(const QLocale& locale, const QString& text) {
    const QDate date = locale.toDate(text, kDateFormat);
    return date.isValid() ? date.toJulianDay() : Parsed::kUnparsed;
}
qint64 timeKey(const QLocale& locale, const QString& text) {
    const QTime time = locale.toTime(text, kTimeFormat);
    return time.isValid() ? time.msecsSinceStartOfDay() : Parsed::kUnparsed;
}

// Reads dates and times written the way the log writes them ("yyyy-MMM-dd" with the locale's
// month abbreviations, "HH:mm:ss", ASCII digits) without the locale's parser, giving what
// dateKey() and timeKey() give; none for any other text, which needs that parser. Locales with
// other digits, or whose month abbreviations their parser does not read back, get no shortcut.
class PlainDates {
public:
    PlainDates(const QLocale& locale, bool enabled) {
        if (!enabled || locale.zeroDigit() != u"0"_s) {
            return;
        }
        for (int month = 1; month <= 12; ++month) {
            const QDate first(2001, month, 1);
            const QString name = locale.toString(first, u"MMM"_s);
            if (name.isEmpty() || m_months.contains(name) ||
                locale.toDate(u"2001-%1-01"_s.arg(name), kDateFormat) != first) {
                m_months.clear();
                break;
            }
            m_months.append(name);
        }
        m_enabled = true;
    }

    [[nodiscard]] std::optional<qint64> date(QStringView text) const {
        const qsizetype dayAt = text.size() - 2;
        if (m_months.isEmpty() || text.size() < 9 || text[4] != u'-' || text[dayAt - 1] != u'-') {
            return std::nullopt;
        }
        const qsizetype month = m_months.indexOf(text.sliced(5, dayAt - 6));
        const int year = digits(text, 0, 4);
        const int day = digits(text, dayAt, 2);
        if (month < 0 || year < 1000 || day < 0 || !QDate::isValid(year, int(month) + 1, day)) {
            return std::nullopt;
        }
        return QDate(year, int(month) + 1, day).toJulianDay();
    }

    [[nodiscard]] std::optional<qint64> time(QStringView text) const {
        if (!m_enabled || text.size() != 8 || text[2] != u':' || text[5] != u':') {
            return std::nullopt;
        }
        const int hours = digits(text, 0, 2);
        const int minutes = digits(text, 3, 2);
        const int seconds = digits(text, 6, 2);
        if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59 || seconds < 0 ||
            seconds > 59) {
            return std::nullopt;
        }
        return ((hours * 60 + minutes) * 60 + seconds) * qint64{1000};
    }

private:
    // The number written with `count` ASCII digits from `at`; -1 when any is not a digit.
    static int digits(QStringView text, qsizetype at, qsizetype count) {
        int value = 0;
        for (qsizetype i = at; i < at + count; ++i) {
            const char16_t c = text[i].unicode();
            if (c < u'0' || c > u'9') {
                return -1;
            }
            value = value * 10 + (c - u'0');
        }
        return value;
    }

    bool m_enabled = false;
    QStringList m_months;
};

int threeWay(qint64 a, qint64 b) {
    return (a > b) - (a < b);
}
int byDate(const Parsed& a, const Parsed& b) {
    return threeWay(a.date, b.date);
}
int byTime(const Parsed& a, const Parsed& b) {
    return threeWay(a.time, b.time);
}
int byColumnText(const Parsed& a, const Parsed& b) {
    return compareText(a.text, b.text);
}
int byPath(const Parsed& a, const Parsed& b) {
    return compareText(a.path, b.path);
}

// The first key that tells the entries apart decides.
template <typename... Keys>
int firstDifference(const Parsed& a, const Parsed& b, Keys... keys) {
    int result = 0;
    (void)((result = keys(a, b), result != 0) || ...);
    return result;
}

int ascending(const Parsed& a, const Parsed& b, LogQuery::Column column) {
    using C = LogQuery::Column;
    switch (column) {
        case C::Date:
        case C::None:
            return firstDifference(a, b, byDate, byTime, byPath);
        case C::Time:
            return firstDifference(a, b, byTime, byDate, byPath);
        case C::File:
            return firstDifference(a, b, byPath, byDate, byTime);
        case C::Type:
        case C::Recipient:
        case C::Status:
            break;
    }
    return firstDifference(a, b, byColumnText, byDate, byTime, byPath);
}

int descending(const Parsed& a, const Parsed& b, LogQuery::Column column) {
    using C = LogQuery::Column;
    // Two quirks users have long seen are kept: dates that differ are ordered by their text
    // (months by abbreviation), and within one status differing dates stay ascending.
    if (column == C::Date && byDate(a, b) != 0) {
        return a.dateText > b.dateText ? -1 : 1;
    }
    if (column == C::Status && byColumnText(a, b) == 0 && byDate(a, b) != 0) {
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
    const QString& word =
        operation == Operation::Encrypt ? LogEntry::kEncryptAction : LogEntry::kDecryptAction;
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
    const bool asciiNeedle = isAscii(needle);
    QList<LogEntry> result;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(result),
                 [&](const LogEntry& e) {
                     const QString& haystack = e.*field;
                     // Folding leaves ASCII text ASCII and changes only its capitals, so most
                     // fields need no folded copy: a case-blind search gives the same answer.
                     if (isAscii(haystack)) {
                         return asciiNeedle && haystack.contains(needle, Qt::CaseInsensitive);
                     }
                     return folded(haystack).contains(needle);
                 });
    return result;
}

namespace {

QString LogEntry::*columnText(LogQuery::Column column) {
    switch (column) {
        case LogQuery::Column::Type:
            return &LogEntry::operationType;
        case LogQuery::Column::Recipient:
            return &LogEntry::recipients;
        case LogQuery::Column::Status:
            return &LogEntry::status;
        default:
            return &LogEntry::filePath;
    }
}

// The entries ready for comparing by `column`. Each distinct date and time text is parsed once,
// and with `shortcuts` those written as the log writes them skip the locale's parser.
std::vector<Parsed> parsedEntries(const LogEntry* entries, qsizetype count,
                                  LogQuery::Column column, bool shortcuts,
                                  std::u16string& arena) {
    const QLocale locale;
    const PlainDates plain(locale, shortcuts);
    QString LogEntry::*text = columnText(column);
    // Distinct dates: their text and parsed value, and which one each entry has.
    QHash<QString, qsizetype> dateIndex;
    QList<QStringView> dateTexts;
    std::vector<qint64> dateValues;
    QHash<QString, qint64> times;
    std::vector<Parsed> items;
    items.reserve(static_cast<std::size_t>(count));
    std::vector<qsizetype> dateOf;
    dateOf.reserve(static_cast<std::size_t>(count));
    // The texts compared go side by side into `arena`, in file order: read from there, a sort
    // does not wander over the entries' scattered text data.
    const bool textIsPath = text == &LogEntry::filePath;
    qsizetype textLength = 0;
    for (const LogEntry* e = entries; e != entries + count; ++e) {
        textLength += e->filePath.size() + (textIsPath ? 0 : (e->*text).size());
    }
    arena.reserve(static_cast<std::size_t>(textLength));
    // Reserved beforehand, the arena never moves while it fills.
    const auto kept = [&arena](const QString& value) {
        const std::size_t at = arena.size();
        arena.append(reinterpret_cast<const char16_t*>(value.utf16()),
                     static_cast<std::size_t>(value.size()));
        return QStringView(arena.data() + at, value.size());
    };
    for (const LogEntry* e = entries; e != entries + count; ++e) {
        auto date = dateIndex.constFind(e->date);
        if (date == dateIndex.cend()) {
            date = dateIndex.insert(e->date, dateTexts.size());
            dateTexts.append(e->date);
            const std::optional<qint64> day = plain.date(e->date);
            dateValues.push_back(day ? *day : dateKey(locale, e->date));
        }
        dateOf.push_back(*date);
        std::optional<qint64> time = plain.time(e->time);
        if (!time) {
            auto known = times.constFind(e->time);
            if (known == times.cend()) {
                known = times.insert(e->time, timeKey(locale, e->time));
            }
            time = *known;
        }
        const QStringView path = kept(e->filePath);
        const QStringView sortText = textIsPath ? path : kept(e->*text);
        items.push_back({e, sortText, path, dateValues[static_cast<std::size_t>(*date)], *time, 0});
    }
    // The date texts in text order, so that a number tells which comes first.
    std::vector<qsizetype> byText(static_cast<std::size_t>(dateTexts.size()));
    std::iota(byText.begin(), byText.end(), qsizetype{0});
    std::sort(byText.begin(), byText.end(), [&dateTexts](qsizetype a, qsizetype b) {
        return compareText(dateTexts[a], dateTexts[b]) < 0;
    });
    std::vector<qint64> textOrder(byText.size());
    for (std::size_t place = 0; place < byText.size(); ++place) {
        textOrder[static_cast<std::size_t>(byText[place])] = static_cast<qint64>(place);
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        items[i].dateText = textOrder[static_cast<std::size_t>(dateOf[i])];
    }
    return items;
}

}  // namespace

int LogQuery::compare(const LogEntry& a, const LogEntry& b, Column column, bool ascendingOrder) {
    const LogEntry pair[] = {a, b};
    std::u16string arena;
    // Each text through the locale's parser, as the viewer has always read them.
    const std::vector<Parsed> items = parsedEntries(pair, 2, column, false, arena);
    return compareParsed(items[0], items[1], column, ascendingOrder);
}

void LogQuery::sort(QList<LogEntry>& entries, Column column, bool ascendingOrder) {
    if (entries.size() < 2) {
        return;
    }
    // Entries are moved into their new places, not copied: a copy touches every text's data,
    // which in sorted order lies all over the memory. A list still shared is copied first, in
    // file order.
    LogEntry* const unsorted = entries.data();
    std::u16string arena;
    std::vector<Parsed> items = parsedEntries(unsorted, entries.size(), column, true, arena);
    // The descending quirks do not make a strict order; a merge sort stays within bounds
    // whatever the comparator answers.
    std::stable_sort(items.begin(), items.end(),
                     [column, ascendingOrder](const Parsed& a, const Parsed& b) {
                         return compareParsed(a, b, column, ascendingOrder) < 0;
                     });
    QList<LogEntry> sorted;
    sorted.reserve(entries.size());
    for (const Parsed& item : items) {
        sorted.append(std::move(unsorted[item.entry - unsorted]));
    }
    entries = std::move(sorted);
}
