#include <gtest/gtest.h>

#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include "crypto/cms/Hex.h"
#include "crypto/toolkit/ComTruvexIO_FileStream.h"
#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCmsParserCallback.h"
#include "crypto/toolkit/TVXRandom.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

TEST(HexTest, RendersUpperCaseWithGroupsAndLineBreaks) {
    const QByteArray sixteen = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(Hex::hexRepresentationWithSpaces_AS(sixteen, false),
              u"000102030405060708090A0B0C0D0E0F"_s);
    EXPECT_EQ(Hex::hexRepresentationWithSpaces_AS(sixteen, true),
              u"00010203 04050607 08090A0B 0C0D0E0F\n"_s);
    EXPECT_EQ(Hex::hexRepresentationWithSpaces_AS(sixteen + "\xab\xcd\xef\xff\x10"_ba, true),
              u"00010203 04050607 08090A0B 0C0D0E0F\nABCDEFFF 10"_s);
    EXPECT_EQ(Hex::hexRepresentationWithSpaces_AS("\xfe\x7f\x80"_ba, true), u"FE7F80"_s);
    EXPECT_EQ(Hex::hexRepresentationWithSpaces_AS(QByteArray(), true), u""_s);
}

TEST(RandomTest, GivesTheRequestedLengthAndFullBytes) {
    EXPECT_TRUE(TVXRandom::randomDataWithLength(0).isEmpty());
    EXPECT_EQ(TVXRandom::randomDataWithLength(1).size(), 1);
    EXPECT_NE(TVXRandom::randomDataWithLength(32), TVXRandom::randomDataWithLength(32));
    // Each byte takes all 8 bits: in 64 KiB every byte value turns up.
    const QByteArray many = TVXRandom::randomDataWithLength(65536);
    ASSERT_EQ(many.size(), 65536);
    QSet<char> seen(many.begin(), many.end());
    EXPECT_EQ(seen.size(), 256);
}

TEST(ParserCallbackTest, RefusesWhatIsNotSupportedWithItsKnownTexts) {
    try {
        TVXCmsParserCallback unusable;
        ADD_FAILURE() << "the default constructor must throw";
    } catch (const TVXException& e) {
        EXPECT_EQ(e.name(), TVXNotSupportedException);
        EXPECT_EQ(e.description(),
                  u"init method not supported. Use "
                  u"initWithPfx:pfxPassword:keyExtractionCryptoProvider: instead"_s);
        EXPECT_EQ(e.file(), u"NivoCrypto/TVXCmsParserCallback"_s);
        EXPECT_EQ(e.method(), u"-[TVXCmsParserCallback init]"_s);
        EXPECT_EQ(e.line(), 29);
    }

    ComTruvexIO_MemoryStream decoded;
    ComTruvexIO_MemoryStream plain("p"_ba);
    const TVXCmsParserCallback callback({}, {}, &decoded, &plain);

    const auto expectRefusal = [](const auto& call, const QString& method, int line) {
        try {
            (void)call();
            ADD_FAILURE() << "must throw";
        } catch (const TVXException& e) {
            EXPECT_EQ(e.name(), TVXStreamOperationException);
            EXPECT_EQ(e.description(), u"Not Supported Exception"_s);
            EXPECT_EQ(e.file(), u"NivoCrypto/TVXCmsParserCallback"_s);
            EXPECT_EQ(e.method(), method);
            EXPECT_EQ(e.line(), line);
        }
    };
    expectRefusal([&] { return callback.getDetachedCiphertextForEncodingLevel(1); },
                  u"-[TVXCmsParserCallback getDetachedCiphertextForEncodingLevel:]"_s, 71);
    expectRefusal([&] { return callback.getDetachedCompressedDataForEncodingLevel(1); },
                  u"-[TVXCmsParserCallback getDetachedCompressedDataForEncodingLevel:]"_s, 92);
}

TEST(FileStreamTest, WrittenFileAppearsOnlyOnCommit) {
    const QTemporaryDir dir;
    const QString target = dir.filePath(u"out.bin"_s);
    {
        auto stream = ComTruvexIO_FileStream::initForWriting(target);
        ASSERT_NE(stream->bio(), nullptr);
        stream->close();
    }
    EXPECT_FALSE(QFile::exists(target));
    EXPECT_TRUE(QDir(dir.path()).isEmpty());

    EXPECT_THROW((void)ComTruvexIO_FileStream::initForReading(dir.filePath(u"none"_s)),
                 TVXException);
    EXPECT_THROW((void)ComTruvexIO_FileStream::initForWriting(dir.filePath(u"no/such/dir"_s)),
                 TVXException);

    ComTruvexIO_MemoryStream memory;
    memory.close();
    EXPECT_THROW((void)memory.bio(), TVXException);
}

}  // namespace
