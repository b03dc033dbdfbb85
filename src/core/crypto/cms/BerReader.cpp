#include "crypto/cms/BerReader.h"

#include <QIODevice>
#include <algorithm>
#include <cstring>
#include <limits>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kEndsEarly = u"the data ends inside an element"_s;
const QString kOverrun = u"an element runs past the end of the one holding it"_s;
const QString kBadLength = u"an element has a length that cannot be read"_s;
const QString kPrimitiveIndefinite = u"a primitive element has no length"_s;
const QString kTagTooLarge = u"an element's tag number is too large"_s;
const QString kBadEndOfContents = u"a misplaced end-of-contents marker"_s;
const QString kTooDeep = u"elements are nested more than %1 deep"_s;
const QString kTooLarge = u"an element is larger than %1 bytes"_s;
const QString kNotConstructed = u"a primitive element where a constructed one belongs"_s;
const QString kLeftover = u"an element holds more than expected"_s;
const QString kMissing = u"the %1 is missing"_s;
const QString kUnexpected = u"the %1 is not where it belongs"_s;
const QString kBadSegment = u"a segment of an OCTET STRING is of another type"_s;
const QString kCannotRead = u"the data cannot be read (%1)"_s;

// Identifier octets of high tag numbers: at most four, so the number fits in 28 bits.
constexpr int kMaxTagOctets = 4;
// Length octets of definite lengths: the value must fit a qint64.
constexpr int kMaxLengthOctets = 8;

}  // namespace

qint64 BerMemorySource::read(char* data, qint64 size) {
    const qint64 count = std::min<qint64>(size, m_bytes.size() - m_position);
    std::memcpy(data, m_bytes.constData() + m_position, static_cast<size_t>(count));
    m_position += count;
    return count;
}

qint64 BerDeviceSource::read(char* data, qint64 size) {
    const qint64 read = m_device.read(data, size);
    if (read < 0) {
        throw BerReader::Error(kCannotRead.arg(m_device.errorString()));
    }
    return read;
}

BerReader::BerReader(BerSource& source) : m_source(source) {}

void BerReader::fail(const QString& message) {
    throw Error(message);
}

qint64 BerReader::available() {
    if (m_bufferStart == m_bufferEnd && !m_sourceEnded) {
        const qint64 read = m_source.read(m_buffer.data(), static_cast<qint64>(m_buffer.size()));
        m_bufferStart = 0;
        m_bufferEnd = std::max<qint64>(read, 0);
        m_sourceEnded = read <= 0;
    }
    return m_bufferEnd - m_bufferStart;
}

qint64 BerReader::roomLeft() const noexcept {
    for (auto frame = m_frames.rbegin(); frame != m_frames.rend(); ++frame) {
        if (!frame->indefinite) {
            return frame->end - m_position;
        }
    }
    return -1;
}

quint8 BerReader::takeByte() {
    if (roomLeft() == 0) {
        fail(kOverrun);
    }
    if (available() == 0) {
        fail(kEndsEarly);
    }
    ++m_position;
    return static_cast<quint8>(m_buffer[static_cast<size_t>(m_bufferStart++)]);
}

void BerReader::take(char* data, qint64 size) {
    if (const qint64 room = roomLeft(); room >= 0 && size > room) {
        fail(kOverrun);
    }
    while (size > 0) {
        const qint64 count = std::min(size, available());
        if (count == 0) {
            fail(kEndsEarly);
        }
        if (data != nullptr) {
            std::memcpy(data, m_buffer.data() + m_bufferStart, static_cast<size_t>(count));
            data += count;
        }
        m_bufferStart += count;
        m_position += count;
        size -= count;
    }
}

void BerReader::push(const Frame& frame) {
    if (m_frames.size() >= static_cast<size_t>(kMaxDepth)) {
        fail(kTooDeep.arg(kMaxDepth));
    }
    m_frames.push_back(frame);
}

std::optional<BerReader::Header> BerReader::next() {
    if (m_frames.empty()) {
        if (available() == 0) {
            return std::nullopt;
        }
    } else {
        const Frame& frame = m_frames.back();
        if (frame.ended || (!frame.indefinite && m_position == frame.end)) {
            return std::nullopt;
        }
    }

    Header header;
    const quint8 identifier = takeByte();
    header.raw.append(static_cast<char>(identifier));
    header.tagClass = identifier & 0xC0;
    header.constructed = (identifier & 0x20) != 0;
    header.tag = identifier & 0x1F;
    if (header.tag == 0x1F) {
        header.tag = 0;
        for (int octets = 0;; ++octets) {
            if (octets == kMaxTagOctets) {
                fail(kTagTooLarge);
            }
            const quint8 part = takeByte();
            header.raw.append(static_cast<char>(part));
            header.tag = (header.tag << 7) | (part & 0x7F);
            if ((part & 0x80) == 0) {
                break;
            }
        }
    }

    const quint8 first = takeByte();
    header.raw.append(static_cast<char>(first));
    if (identifier == 0x00) {
        // End-of-contents: only as the last element of an indefinite-length one.
        if (first != 0x00 || m_frames.empty() || !m_frames.back().indefinite) {
            fail(kBadEndOfContents);
        }
        m_frames.back().ended = true;
        return std::nullopt;
    }
    if (first == 0x80) {
        if (!header.constructed) {
            fail(kPrimitiveIndefinite);
        }
        header.indefinite = true;
    } else if (first < 0x80) {
        header.length = first;
    } else {
        const int octets = first & 0x7F;
        if (octets > kMaxLengthOctets) {
            fail(kBadLength);
        }
        quint64 length = 0;
        for (int i = 0; i < octets; ++i) {
            const quint8 part = takeByte();
            header.raw.append(static_cast<char>(part));
            length = (length << 8) | part;
        }
        if (length > static_cast<quint64>(std::numeric_limits<qint64>::max())) {
            fail(kBadLength);
        }
        header.length = static_cast<qint64>(length);
    }
    if (const qint64 room = roomLeft(); !header.indefinite && room >= 0 && header.length > room) {
        fail(kOverrun);
    }
    return header;
}

BerReader::Header BerReader::expect(quint8 cls, quint32 number, bool constructed,
                                    const char* what) {
    const std::optional<Header> header = next();
    if (!header) {
        fail(kMissing.arg(QLatin1StringView(what)));
    }
    if (!header->is(cls, number) || header->constructed != constructed) {
        fail(kUnexpected.arg(QLatin1StringView(what)));
    }
    return *header;
}

void BerReader::enter(const Header& header) {
    if (!header.constructed) {
        fail(kNotConstructed);
    }
    push(Frame{header.indefinite, m_position + header.length, false, false, false});
}

void BerReader::leave() {
    if (m_frames.empty()) {
        return;
    }
    if (m_frames.back().indefinite && !m_frames.back().ended && next()) {
        fail(kLeftover);
    }
    const Frame& frame = m_frames.back();
    if (!frame.indefinite && m_position != frame.end) {
        fail(kLeftover);
    }
    m_frames.pop_back();
}

void BerReader::copyElement(const Header& header, QByteArray* into, qint64 limit) {
    if (into != nullptr) {
        if (into->size() + header.raw.size() > limit) {
            fail(kTooLarge.arg(limit));
        }
        into->append(header.raw);
    }
    if (!header.indefinite) {
        if (into == nullptr) {
            take(nullptr, header.length);
            return;
        }
        if (into->size() + header.length > limit) {
            fail(kTooLarge.arg(limit));
        }
        const qsizetype at = into->size();
        into->resize(at + static_cast<qsizetype>(header.length));
        take(into->data() + at, header.length);
        return;
    }
    enter(header);
    while (const std::optional<Header> inner = next()) {
        copyElement(*inner, into, limit);
    }
    leave();
    if (into != nullptr) {
        if (into->size() + 2 > limit) {
            fail(kTooLarge.arg(limit));
        }
        into->append(2, '\0');
    }
}

QByteArray BerReader::capture(const Header& header, qint64 limit) {
    QByteArray element;
    copyElement(header, &element, limit);
    return element;
}

void BerReader::skip(const Header& header) {
    copyElement(header, nullptr, 0);
}

void BerReader::beginOctets(const Header& header) {
    m_octetsBase = depth();
    if (header.constructed) {
        enter(header);
        m_frames.back().octets = true;
    } else {
        push(Frame{false, m_position + header.length, false, true, true});
    }
}

qint64 BerReader::readOctets(char* data, qint64 size) {
    while (m_octetsBase >= 0 && depth() > m_octetsBase) {
        const Frame& frame = m_frames.back();
        if (frame.primitive) {
            const qint64 left = frame.end - m_position;
            if (left == 0) {
                m_frames.pop_back();
                continue;
            }
            if (size <= 0) {
                return 0;
            }
            const qint64 count = std::min({size, left, available()});
            if (count == 0) {
                fail(kEndsEarly);
            }
            take(data, count);
            return count;
        }
        const std::optional<Header> segment = next();
        if (!segment) {
            leave();
            continue;
        }
        if (!segment->isUniversal(kTagOctetString)) {
            fail(kBadSegment);
        }
        if (segment->constructed) {
            enter(*segment);
            m_frames.back().octets = true;
        } else {
            push(Frame{false, m_position + segment->length, false, true, true});
        }
    }
    m_octetsBase = -1;
    return 0;
}
