// The outline of a protected file is read from its head alone: the same for any content size,
// unchanged by whatever follows the head, refused when the head itself breaks off.
#include <gtest/gtest.h>
#include <openssl/obj_mac.h>

#include <QFile>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/cms/BerReader.h"
#include "crypto/cms/CmsHead.h"
#include "crypto/cms/CmsOutline.h"
#include "crypto/toolkit/TVXCmsParser.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;

namespace {

// Larger than every buffer between the file and the outline.
constexpr qsizetype kLargeContent = 3 * 1024 * 1024;

void expectSameOutline(const CmsOutline& actual, const CmsOutline& expected) {
    EXPECT_EQ(actual.failure, expected.failure);
    EXPECT_EQ(actual.layer, expected.layer);
    EXPECT_EQ(actual.contentEncryption, expected.contentEncryption);
    EXPECT_EQ(actual.innerContentType, expected.innerContentType);
    ASSERT_EQ(actual.recipients.size(), expected.recipients.size());
    for (qsizetype i = 0; i < actual.recipients.size(); ++i) {
        const CmsOutline::Recipient& a = actual.recipients[i];
        const CmsOutline::Recipient& e = expected.recipients[i];
        EXPECT_EQ(a.kind, e.kind);
        EXPECT_EQ(a.keyAlgorithm, e.keyAlgorithm);
        EXPECT_EQ(a.issuer, e.issuer);
        EXPECT_EQ(a.serialNumber, e.serialNumber);
        EXPECT_EQ(a.keyIdentifier, e.keyIdentifier);
        EXPECT_EQ(a.certificateIndex, e.certificateIndex);
    }
}

// Bytes before the encrypted content octets of an enveloped message.
qint64 headSize(const QByteArray& message) {
    BerMemorySource source(message);
    BerReader reader(source);
    (void)CmsHead::readContentType(reader);
    (void)CmsHead::readEnveloped(reader, NID_pkcs7_enveloped);
    return reader.position();
}

class CmsOutlineTest : public PeopleTest {
protected:
    // The outline of `message` as read from a file, and how far into the file it read.
    std::pair<CmsOutline, qint64> outlineOfFile(const QByteArray& message) {
        const QString path = out(u"outlined.tvf"_s);
        EXPECT_TRUE(putFile(path, message));
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        const CmsOutline outline = CmsOutline::inspect(file, {carol().certDer, bob().certDer});
        return {outline, file.pos()};
    }
};

TEST_F(CmsOutlineTest, TheOutlineIsTheSameWhateverTheContentSize) {
    const QByteArray large(kLargeContent, 'x');
    const struct {
        const char* name;
        QByteArray small;
        QByteArray large;
        QString layer;
        QString encryption;
    } messages[] = {
        {"ours", aliceToBob("x"_ba), aliceToBob(large), u"EnvelopedData"_s, u"aes-256-cbc"_s},
        {"authenticated", pki().encrypt("x"_ba, {&alice(), &bob()}, {u"-aes-256-gcm"_s}),
         pki().encrypt(large, {&alice(), &bob()}, {u"-aes-256-gcm"_s}), u"AuthEnvelopedData"_s,
         u"aes-256-gcm"_s},
    };
    for (const auto& m : messages) {
        SCOPED_TRACE(m.name);
        const auto [small, smallRead] = outlineOfFile(m.small);
        ASSERT_EQ(small.failure, QString());
        EXPECT_EQ(small.layer, m.layer);
        EXPECT_EQ(small.contentEncryption, m.encryption);
        EXPECT_EQ(small.innerContentType, u"pkcs7-data"_s);
        ASSERT_EQ(small.recipients.size(), 2);
        EXPECT_EQ(small.recipients[0].certificateIndex, -1);  // Alice is no known certificate
        EXPECT_EQ(small.recipients[1].certificateIndex, 1);
        EXPECT_EQ(small.recipients[1].kind, u"key transport"_s);

        const auto [outline, read] = outlineOfFile(m.large);
        expectSameOutline(outline, small);
        // One reading buffer past the head at most, never the content.
        EXPECT_LT(read, 128 * 1024);
        expectSameOutline(CmsOutline::inspect(m.large, {carol().certDer, bob().certDer}), small);
    }
}

TEST_F(CmsOutlineTest, OnlyTheHeadIsReadAndAHeadThatBreaksOffIsRefused) {
    const QByteArray message = aliceToBob(QByteArray(kLargeContent, 'x'));
    const qint64 head = headSize(message);
    ASSERT_GT(head, 500);  // two recipient entries
    const CmsOutline intact = outlineOfFile(message).first;
    ASSERT_EQ(intact.failure, QString());

    // Garbage instead of the content, or no content at all: the outline is unchanged, while
    // decryption refuses the file.
    const QByteArray garbage = message.left(head) + QByteArray(kLargeContent, '\xff');
    expectSameOutline(outlineOfFile(garbage).first, intact);
    expectSameOutline(outlineOfFile(message.left(head)).first, intact);
    EXPECT_NE(decryptAs(bob(), u"bob"_s, garbage, out(u"plain"_s)).outcome, QString());

    for (qint64 cut = 0; cut < head; ++cut) {
        const CmsOutline outline = CmsOutline::inspect(message.left(cut), {bob().certDer});
        ASSERT_EQ(outline.failure, TVXCmsParser::notCmsMessage()) << "cut at " << cut;
        ASSERT_TRUE(outline.recipients.isEmpty());
    }
}

}  // namespace
