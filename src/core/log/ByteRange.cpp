#include "log/ByteRange.h"

ByteRange rangeOfData_xr(QByteArrayView haystack, QByteArrayView needle) noexcept {
    ByteRange range{ByteRange::kNotFound, needle.size()};
    if (haystack.isEmpty() || needle.isEmpty()) {
        return range;
    }
    qint64 matched = 0;
    for (qint64 i = 0; i < haystack.size(); ++i) {
        if (haystack[i] == needle[matched]) {
            if (range.location == ByteRange::kNotFound) {
                range.location = i;
            }
            if (++matched == needle.size()) {
                break;
            }
        } else {
            range.location = ByteRange::kNotFound;
            matched = 0;
        }
    }
    return range;
}
