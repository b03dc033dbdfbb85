#include <gtest/gtest.h>

#include <QByteArray>
#include <algorithm>
#include <functional>

#include "CryptoTestKit.h"
#include "crypto/cms/BerReader.h"

using namespace Qt::Literals::StringLiterals;
using CryptoTestKit::tlv;
using Header = BerReader::Header;

namespace {

// Hands out at most `piece` bytes per read, so that elements straddle every buffer boundary.
class TrickleSource final : public BerSource {
public:
    TrickleSource(QByteArray bytes, qint64 piece) : m_bytes(std::move(bytes)), m_piece(piece) {}
    qint64 read(char* data, qint64 size) override {
        const qint64 count = std::min({size, m_piece, m_bytes.size() - m_position});
        std::copy_n(m_bytes.constData() + m_position, count, data);
        m_position += count;
        return count;
    }
    [[nodiscard]] qint64 delivered() const noexcept { return m_position; }

private:
    QByteArray m_bytes;
    qint64 m_piece;
    qint64 m_position = 0;
};

QByteArray indefinite(quint8 tag, const QByteArray& content) {
    return QByteArray(1, static_cast<char>(tag)) + '\x80' + content + QByteArray(2, '\0');
}

QByteArray streamOctets(BerReader& reader, const Header& header, qint64 piece) {
    reader.beginOctets(header);
    QByteArray content;
    QByteArray buffer(piece, '\0');
    while (const qint64 read = reader.readOctets(buffer.data(), piece)) {
        content.append(buffer.constData(), read);
    }
    return content;
}

QString failureOf(const QByteArray& bytes, const std::function<void(BerReader&)>& walk) {
    BerMemorySource source(bytes);
    BerReader reader(source);
    try {
        walk(reader);
    } catch (const BerReader::Error& error) {
        return error.message();
    }
    return {};
}

// Goes into every constructed element and passes over every primitive one.
void walkAll(BerReader& reader) {
    for (;;) {
        const auto header = reader.next();
        if (!header) {
            if (reader.depth() == 0) {
                return;
            }
            reader.leave();
        } else if (header->constructed) {
            reader.enter(*header);
        } else {
            reader.skip(*header);
        }
    }
}

// Captures every top-level element, going into none.
void captureAll(BerReader& reader) {
    while (const auto header = reader.next()) {
        (void)reader.capture(*header);
    }
}

TEST(BerReaderTest, WalksDefiniteAndIndefiniteLengthsAndKeepsElementsAsWritten) {
    const QByteArray oid = QByteArray::fromHex("06092a864886f70d010701");
    const QByteArray set = tlv(0x31, tlv(0x02, "\x01"_ba));
    const QByteArray nested = indefinite(0xA0, indefinite(0x30, tlv(0x05, {})) + set);
    const QByteArray message = indefinite(0x30, oid + nested) + tlv(0x04, "tail"_ba);

    for (const qint64 piece : {qint64{1}, qint64{3}, qint64{1} << 20}) {
        SCOPED_TRACE(piece);
        TrickleSource source(message, piece);
        BerReader reader(source);
        const auto outer = reader.next();
        ASSERT_TRUE(outer);
        EXPECT_TRUE(outer->isUniversal(BerReader::kTagSequence) && outer->indefinite);
        reader.enter(*outer);
        EXPECT_EQ(reader.capture(reader.expect(BerReader::kUniversal, BerReader::kTagOid, false,
                                               "type")),
                  oid);
        const auto explicitContent = reader.next();
        ASSERT_TRUE(explicitContent && explicitContent->is(BerReader::kContext, 0));
        // An indefinite element is kept with its end-of-contents markers, byte for byte.
        EXPECT_EQ(reader.capture(*explicitContent), nested);
        EXPECT_FALSE(reader.next());
        reader.leave();
        EXPECT_EQ(reader.depth(), 0);
        const auto tail = reader.next();
        ASSERT_TRUE(tail);
        EXPECT_EQ(tail->length, 4);
        reader.skip(*tail);
        EXPECT_FALSE(reader.next());
        EXPECT_EQ(reader.position(), message.size());
    }
}

TEST(BerReaderTest, StreamsOctetStringsWhateverTheirSegmentation) {
    QByteArray content(200000, '\0');
    for (qsizetype i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 7);
    }
    // Primitive; constructed definite with uneven segments and an empty one; constructed
    // indefinite with a nested constructed segment; the [0] IMPLICIT form of EncryptedContent.
    const QByteArray segmented = tlv(0x24, tlv(0x04, content.left(1000)) + tlv(0x04, {}) +
                                               tlv(0x04, content.mid(1000)));
    const QByteArray nested = indefinite(
        0x24, tlv(0x04, content.left(5)) +
                  indefinite(0x24, tlv(0x04, content.mid(5, 70000)) + tlv(0x04, {})) +
                  tlv(0x04, content.mid(70005)));
    QByteArray implicit = nested;
    implicit[0] = '\xA0';
    const QList<QByteArray> forms{tlv(0x04, content), segmented, nested, implicit};
    for (const QByteArray& form : forms) {
        for (const qint64 piece : {qint64{1} << 16, qint64{4093}}) {
            SCOPED_TRACE(piece);
            TrickleSource source(form + tlv(0x05, {}), 777);
            BerReader reader(source);
            const auto header = reader.next();
            ASSERT_TRUE(header);
            EXPECT_EQ(streamOctets(reader, *header, piece), content);
            // The reader stands right behind the string.
            const auto after = reader.next();
            ASSERT_TRUE(after);
            EXPECT_TRUE(after->isUniversal(5));
        }
    }

    // A segment of another type inside a constructed OCTET STRING is refused.
    EXPECT_FALSE(failureOf(tlv(0x24, tlv(0x02, "\x01"_ba)), [](BerReader& reader) {
                     (void)streamOctets(reader, *reader.next(), 16);
                 }).isEmpty());
}

TEST(BerReaderTest, MalformedEncodingsFailWithAReason) {
    const struct {
        const char* name;
        QByteArray bytes;
    } cases[] = {
        {"ends inside the contents", "\x04\x05\x01\x02"_ba},
        {"ends inside the header", "\x30\x84\x00"_ba},
        {"child longer than its parent", tlv(0x30, "\x04\x05\x01"_ba)},
        {"primitive with indefinite length", "\x04\x80\x00\x00"_ba},
        {"end-of-contents at the top", QByteArray(2, '\0') + "\x05\x00"_ba},
        {"indefinite element never ended", "\x30\x80\x05\x00"_ba},
        {"nine length octets", "\x04\x89\x01\x01\x01\x01\x01\x01\x01\x01\x01"_ba},
        {"tag number beyond 28 bits", "\x1f\xff\xff\xff\xff\x7f\x00"_ba},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_FALSE(failureOf(c.bytes, walkAll).isEmpty());
    }
}

TEST(BerReaderTest, LimitsOnDepthAndKeptSizeHoldAgainstHostileInput) {
    // Nested one level deeper than allowed: refused when entered, not by exhausting the stack.
    QByteArray deep = tlv(0x05, {});
    for (int i = 0; i <= BerReader::kMaxDepth; ++i) {
        deep = indefinite(0x30, deep);
    }
    const auto enterAll = [](BerReader& reader) {
        while (const auto header = reader.next()) {
            reader.enter(*header);
        }
    };
    EXPECT_TRUE(failureOf(deep, enterAll).contains(QString::number(BerReader::kMaxDepth)));
    EXPECT_TRUE(failureOf(deep, captureAll).contains(QString::number(BerReader::kMaxDepth)));

    // A declared length of 2^62 bytes is refused before anything that large is allocated; the
    // same holds for an indefinite element whose parts add up beyond the limit.
    const QByteArray huge = "\x30\x88\x40\x00\x00\x00\x00\x00\x00\x00\x05\x00"_ba;
    EXPECT_TRUE(failureOf(huge, captureAll).contains(u"larger than"_s));
    const QByteArray piece = tlv(0x04, QByteArray(1000, 'x'));
    QByteArray many;
    while (many.size() < 5000) {
        many += piece;
    }
    EXPECT_TRUE(failureOf(indefinite(0x30, many), [](BerReader& reader) {
                    (void)reader.capture(*reader.next(), 4096);
                }).contains(u"larger than"_s));
    // Skipping the same element keeps nothing, so no limit applies.
    EXPECT_TRUE(failureOf(indefinite(0x30, many), [](BerReader& reader) {
                    reader.skip(*reader.next());
                }).isEmpty());
}

}  // namespace
