// Protected files built to hurt: empty, cut short at every boundary of their outer structure,
// declaring absurd lengths, addressed to 10,000 recipients or nested 1,000 deep. Both decrypt
// variants must answer with a failure text, write nothing and leave the sender alone.
#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/x509.h>

#include <QDir>
#include <QTemporaryDir>
#include <memory>
#include <set>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/cms/CmsOutline.h"
#include "crypto/toolkit/TVXCmsParser.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;

namespace {

// Header size and content length of the definite-length DER element at `at`.
std::pair<qsizetype, qsizetype> elementAt(const QByteArray& der, qsizetype at) {
    const auto first = static_cast<quint8>(der[at + 1]);
    if ((first & 0x80) == 0) {
        return {2, first};
    }
    const int count = first & 0x7f;
    qsizetype length = 0;
    for (int i = 0; i < count; ++i) {
        length = (length << 8) | static_cast<quint8>(der[at + 2 + i]);
    }
    return {2 + count, length};
}

// Walks the BER element at `at` (definite or indefinite length), recording every offset at
// which an element starts, has its header behind it, or ends, through all constructed elements
// (the encrypted content is one opaque string). Returns the offset after the element.
qsizetype walk(const QByteArray& ber, qsizetype at, std::set<qsizetype>& boundaries,
               int depth = 0) {
    boundaries.insert(at);
    const bool constructed = (static_cast<quint8>(ber[at]) & 0x20) != 0;
    const bool indefinite = static_cast<quint8>(ber[at + 1]) == 0x80;
    qsizetype at2 = at;
    qsizetype length = 0;
    if (indefinite) {
        at2 += 2;
    } else {
        const auto [header, definite] = elementAt(ber, at);
        at2 += header;
        length = definite;
    }
    boundaries.insert(at2);
    if (indefinite) {
        while (at2 + 2 <= ber.size() && !(ber[at2] == 0 && ber[at2 + 1] == 0)) {
            at2 = walk(ber, at2, boundaries, depth + 1);
        }
        boundaries.insert(at2);
        at2 += 2;
    } else {
        if (constructed && depth < 64) {
            for (qsizetype child = at2; child < at2 + length;) {
                child = walk(ber, child, boundaries, depth + 1);
            }
        }
        at2 += length;
    }
    boundaries.insert(at2);
    return at2;
}

// The elements inside the constructed element `der`.
QList<QByteArray> children(const QByteArray& der) {
    QList<QByteArray> parts;
    const auto [outerHeader, outerLength] = elementAt(der, 0);
    for (qsizetype at = outerHeader; at < outerHeader + outerLength;) {
        const auto [header, length] = elementAt(der, at);
        parts << der.mid(at, header + length);
        at += header + length;
    }
    return parts;
}

using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

X509Ptr certificate(const QByteArray& der) {
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    return {d2i_X509(nullptr, &in, der.size()), &X509_free};
}

// EnvelopedData around `content` for the certificates given, in order, as DER.
QByteArray envelopeFor(const QList<const QByteArray*>& recipients, const QByteArray& content) {
    STACK_OF(X509)* certificates = sk_X509_new_null();
    for (const QByteArray* der : recipients) {
        sk_X509_push(certificates, certificate(*der).release());
    }
    BIO* in = BIO_new_mem_buf(content.constData(), static_cast<int>(content.size()));
    const CmsPtr cms(CMS_encrypt(certificates, in, EVP_aes_256_cbc(), CMS_BINARY),
                     &CMS_ContentInfo_free);
    BIO_free(in);
    sk_X509_pop_free(certificates, X509_free);
    EXPECT_TRUE(cms);
    unsigned char* out = nullptr;
    const int size = i2d_CMS_ContentInfo(cms.get(), &out);
    QByteArray der(reinterpret_cast<const char*>(out), size);
    OPENSSL_free(out);
    return der;
}

class HostileProtectedFileTest : public PeopleTest {
protected:

    // Bob opens `message` with both variants; each must refuse it cleanly. Returns the texts.
    QStringList refusedByBoth(const QByteArray& message, const std::string& what) {
        const QString input = out(u"hostile.tvf"_s);
        EXPECT_TRUE(putFile(input, message));
        const Decrypted inMemory = decryptAs(bob(), u"bob"_s, message, out(u"plain"_s));
        const Decrypted fromFile = decryptFileAs(bob(), u"bob"_s, input, out(u"plain"_s));
        for (const Decrypted* result : {&inMemory, &fromFile}) {
            EXPECT_FALSE(result->outcome.isEmpty()) << what;
            EXPECT_FALSE(result->outputWritten) << what;
            EXPECT_EQ(result->sender, kSenderUntouched) << what;
        }
        // What the tool shows of a file without opening it must cope with the same input.
        const CmsOutline outline = CmsOutline::inspect(message, {bob().certDer});
        m_outlineFailures << outline.failure;
        QFile::remove(input);
        QFile::remove(out(u"plain"_s));
        EXPECT_TRUE(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty()) << what;
        return {inMemory.outcome, fromFile.outcome};
    }

    // The outline reader's failure texts for the messages refused so far, in order.
    QStringList m_outlineFailures;
};

bool isDamagedText(const QString& text) {
    return text.startsWith(u"The message is damaged or incomplete ("_s);
}

TEST_F(HostileProtectedFileTest, EmptyAndOneByteFilesAreNotProtectedFiles) {
    for (const QByteArray& message : {QByteArray(), "\x30"_ba, "x"_ba}) {
        for (const QString& text : refusedByBoth(message, message.toHex().toStdString())) {
            EXPECT_EQ(text, NivoCryptoOperation::kNotEncryptedOrNotSupported);
        }
    }
    EXPECT_EQ(m_outlineFailures.count(QString()), 0);
}

TEST_F(HostileProtectedFileTest, AFileCutAtAnyBoundaryOfItsStructureIsRefused) {
    const QByteArray message = aliceToBob("quarterly figures"_ba);
    std::set<qsizetype> boundaries;
    ASSERT_EQ(walk(message, 0, boundaries), message.size());
    boundaries.erase(message.size());
    // The outline has the content info, the enveloped data, each recipient and the content.
    ASSERT_GE(boundaries.size(), 30u);
    for (const qsizetype cut : boundaries) {
        const QByteArray truncated = message.left(cut);
        for (const QString& text : refusedByBoth(truncated, "cut at " + std::to_string(cut))) {
            EXPECT_TRUE(isDamagedText(text) ||
                        text == NivoCryptoOperation::kNotEncryptedOrNotSupported)
                << "cut at " << cut << ": " << text.toStdString();
        }
    }
}

TEST_F(HostileProtectedFileTest, HugeDeclaredLengthsAreRefusedWithoutReadingOn) {
    const QByteArray message = aliceToBob("quarterly figures"_ba);
    // The outer sequence claims 2 GiB, then 2^64 - 1 bytes, then a length of 127 bytes; the
    // rest is the real file (whose outer sequence has an open length).
    ASSERT_EQ(message.left(2), "\x30\x80"_ba);
    const QByteArray body = message.mid(2);
    for (const QByteArray& header : {"\x30\x84\x7f\xff\xff\xff"_ba,
                                     "\x30\x88\xff\xff\xff\xff\xff\xff\xff\xff"_ba,
                                     "\x30\xff"_ba + QByteArray(127, '\xff')}) {
        for (const QString& text : refusedByBoth(header + body, header.toHex().toStdString())) {
            EXPECT_TRUE(isDamagedText(text) ||
                        text == NivoCryptoOperation::kNotEncryptedOrNotSupported)
                << text.toStdString();
        }
    }
    // The outline reads the head only: 2 GiB promised but never given look to it like a file
    // cut off inside its content, whose outside still reads; lengths that cannot be read do not.
    EXPECT_EQ(m_outlineFailures, (QStringList{QString(), TVXCmsParser::notCmsMessage(),
                                              TVXCmsParser::notCmsMessage()}));
}

TEST_F(HostileProtectedFileTest, TenThousandRecipientsAreSearchedAndTheOwnEntryFound) {
    const QByteArray signedContent = pki().sign("for many eyes"_ba, {&alice()});
    QList<const QByteArray*> recipients;
    for (int i = 0; i < 10'000; ++i) {
        recipients << &carol().certDer;
    }
    const QByteArray forOthers = envelopeFor(recipients, signedContent);
    recipients << &bob().certDer;
    const QByteArray forAll = envelopeFor(recipients, signedContent);

    for (const QString& text : refusedByBoth(forOthers, "10,000 others")) {
        EXPECT_EQ(text, NivoCryptoOperation::kNotRecipient);
    }
    EXPECT_EQ(m_outlineFailures, QStringList{QString()});
    EXPECT_EQ(CmsOutline::inspect(forAll, {bob().certDer}).recipients.size(), 10'001);
    const Decrypted opened = decryptAs(bob(), u"bob"_s, forAll, out(u"plain"_s));
    EXPECT_EQ(opened.outcome, QString());
    EXPECT_EQ(opened.output, "for many eyes"_ba);
    EXPECT_EQ(opened.sender, alice().commonName);
}

TEST_F(HostileProtectedFileTest, NestingAThousandDeepIsRefused) {
    // A thousand enveloped layers, each addressed to Bob: only a signed layer may follow an
    // enveloped one, so opening stops at the second.
    QByteArray layered = pki().sign("deep inside"_ba, {&alice()});
    for (int i = 0; i < 1'000; ++i) {
        layered = envelopeLabelled(bob(), layered, NID_pkcs7_enveloped);
    }
    for (const QString& text : refusedByBoth(layered, "1,000 layers")) {
        EXPECT_EQ(text, u"The message holds an unsupported layer (pkcs7-envelopedData)"_s);
    }

    // The real ciphertext for Bob, cut into a BER string of strings 1,000 levels deep.
    const QByteArray real = envelopeFor({&bob().certDer}, pki().sign("deep inside"_ba, {&alice()}));
    const QList<QByteArray> contentInfo = children(real);
    const QList<QByteArray> enveloped = children(children(contentInfo[1])[0]);
    const QList<QByteArray> encryptedContent = children(enveloped[2]);
    ASSERT_EQ(static_cast<quint8>(encryptedContent[2][0]), 0x80);
    const auto [header, length] = elementAt(encryptedContent[2], 0);
    QByteArray deepString = "\xa0\x80"_ba;
    for (int i = 1; i < 1'000; ++i) {
        deepString += "\x24\x80"_ba;
    }
    deepString += tlv(0x04, encryptedContent[2].mid(header, length)) + QByteArray(2'000, '\0');
    const QByteArray deep = tlv(
        0x30, contentInfo[0] +
                  tlv(0xa0, tlv(0x30, enveloped[0] + enveloped[1] +
                                          tlv(0x30, encryptedContent[0] + encryptedContent[1] +
                                                        deepString))));
    for (const QString& text : refusedByBoth(deep, "a string 1,000 deep")) {
        EXPECT_TRUE(isDamagedText(text)) << text.toStdString();
    }
}

}  // namespace
