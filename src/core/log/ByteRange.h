#pragma once

#include <QByteArrayView>
#include <QtGlobal>
#include <limits>

// Where a byte sequence was found: `location` is kNotFound when it was not.
struct ByteRange {
    static constexpr qint64 kNotFound = std::numeric_limits<qint64>::max();

    qint64 location = kNotFound;
    qint64 length = 0;

    friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

// A plain forward scan for `needle` in `haystack`, made for one-byte line delimiters. Two
// shortcuts are deliberate and harmless with one byte: after a mismatch the breaking byte is not
// tried again as the start of a match, and a partial match that runs into the end of the
// haystack counts as found. The length is always the needle's. An empty needle is never found.
[[nodiscard]] ByteRange rangeOfData_xr(QByteArrayView haystack, QByteArrayView needle) noexcept;
