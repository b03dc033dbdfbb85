#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <array>
#include <exception>
#include <optional>
#include <vector>

class QIODevice;

// Where a BerReader takes its bytes from.
class BerSource {
public:
    virtual ~BerSource() = default;
    // Up to `size` bytes into `data`; 0 at the end. Throws BerReader::Error on a read failure.
    virtual qint64 read(char* data, qint64 size) = 0;
};

// A BerSource over bytes in memory.
class BerMemorySource final : public BerSource {
public:
    explicit BerMemorySource(QByteArray bytes) : m_bytes(std::move(bytes)) {}
    qint64 read(char* data, qint64 size) override;

private:
    QByteArray m_bytes;
    qsizetype m_position = 0;
};

// A BerSource reading a QIODevice from its current position; a read failure is a fault.
class BerDeviceSource final : public BerSource {
public:
    explicit BerDeviceSource(QIODevice& device) : m_device(device) {}
    qint64 read(char* data, qint64 size) override;

private:
    QIODevice& m_device;
};

// Walks BER (definite and indefinite lengths) from a source, front to back, without ever holding
// more than one buffer of it: the caller steps from element to element, goes into constructed
// ones, keeps the small ones it needs (capture), skips others and streams the contents of OCTET
// STRINGs, primitive or constructed, however long they are. Hostile input cannot make it recurse
// or allocate without bound: nesting and every kept element are limited.
class BerReader {
public:
    // Nesting of constructed elements the reader follows. Our messages need about a dozen levels
    // (ContentInfo, EnvelopedData, the inner SignedData, constructed OCTET STRINGs); more is
    // refused rather than followed.
    static constexpr int kMaxDepth = 32;
    // The largest element capture() keeps. A recipient entry is well under 1 KiB, a certificate
    // or signer entry a few KiB; this leaves room for a thousand recipients and keeps the handful
    // of kept elements, and OpenSSL's parsed copies of them, far below the memory a run may use.
    static constexpr qint64 kMaxKeptElement = qint64{1} << 20;

    static constexpr quint8 kUniversal = 0x00;
    static constexpr quint8 kContext = 0x80;
    static constexpr quint32 kTagInteger = 2;
    static constexpr quint32 kTagOctetString = 4;
    static constexpr quint32 kTagOid = 6;
    static constexpr quint32 kTagSequence = 16;
    static constexpr quint32 kTagSet = 17;

    // A fault of the encoding (or of the source). The reader is unusable afterwards.
    class Error : public std::exception {
    public:
        explicit Error(QString message) : m_message(std::move(message)) {}
        [[nodiscard]] const QString& message() const noexcept { return m_message; }
        [[nodiscard]] const char* what() const noexcept override { return "BER error"; }

    private:
        QString m_message;
    };

    struct Header {
        quint8 tagClass = 0;  // kUniversal, 0x40 (application), kContext or 0xC0 (private)
        bool constructed = false;
        quint32 tag = 0;
        bool indefinite = false;
        qint64 length = 0;  // content octets; meaningless when indefinite
        QByteArray raw;     // the identifier and length octets as read

        [[nodiscard]] bool is(quint8 cls, quint32 number) const noexcept {
            return tagClass == cls && tag == number;
        }
        [[nodiscard]] bool isUniversal(quint32 number) const noexcept {
            return is(kUniversal, number);
        }
    };

    explicit BerReader(BerSource& source);

    // The next element of the element we are in (or of the source, at the top), its header read;
    // nothing when that element (or the source) has ended. Next, the caller must enter(),
    // capture(), skip() or stream (beginOctets()) the element.
    [[nodiscard]] std::optional<Header> next();
    // Like next(), but the element must be there and be a `cls`/`number` element.
    Header expect(quint8 cls, quint32 number, bool constructed, const char* what);
    // Goes into the constructed element whose header next() just gave.
    void enter(const Header& header);
    // Leaves the element entered last; all its elements must have been read (an indefinite
    // one's end-of-contents is read here when next() has not seen it yet).
    void leave();
    // The whole element (header and contents), as BER; an error when larger than `limit`.
    [[nodiscard]] QByteArray capture(const Header& header, qint64 limit = kMaxKeptElement);
    // Passes over the whole element.
    void skip(const Header& header);

    // Streams the contents of the OCTET STRING (or implicitly tagged one) whose header next()
    // just gave: readOctets() gives its bytes, primitive or split over constructed segments,
    // until it answers 0, after which the reader stands behind the string.
    void beginOctets(const Header& header);
    qint64 readOctets(char* data, qint64 size);

    // Bytes consumed from the source so far.
    [[nodiscard]] qint64 position() const noexcept { return m_position; }
    [[nodiscard]] int depth() const noexcept { return static_cast<int>(m_frames.size()); }

private:
    struct Frame {
        bool indefinite = false;
        qint64 end = 0;       // position after the contents, for definite lengths
        bool ended = false;   // an indefinite element's end-of-contents was read
        bool octets = false;  // part of an OCTET STRING being streamed
        bool primitive = false;
    };

    [[noreturn]] static void fail(const QString& message);
    quint8 takeByte();
    void take(char* data, qint64 size);
    qint64 available();
    void push(const Frame& frame);
    // Bytes the innermost definite element still holds; -1 when unbounded.
    [[nodiscard]] qint64 roomLeft() const noexcept;
    void copyElement(const Header& header, QByteArray* into, qint64 limit);

    BerSource& m_source;
    std::vector<Frame> m_frames;
    std::array<char, 64 * 1024> m_buffer{};
    qint64 m_bufferStart = 0;
    qint64 m_bufferEnd = 0;
    qint64 m_position = 0;
    bool m_sourceEnded = false;
    int m_octetsBase = -1;  // frame count when the OCTET STRING being streamed began
};
