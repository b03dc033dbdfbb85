#include "CryptoTestKit.h"

#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/x509.h>

#include <QFile>
#include <memory>

#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/TVXException.h"

using namespace Qt::Literals::StringLiterals;

namespace CryptoTestKit {

namespace {

template <auto FreeFn>
struct Free {
    template <class T>
    void operator()(T* p) const noexcept {
        FreeFn(p);
    }
};
using BioPtr = std::unique_ptr<BIO, Free<BIO_free_all>>;
using X509Ptr = std::unique_ptr<X509, Free<X509_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Free<CMS_ContentInfo_free>>;
void freeCerts(STACK_OF(X509)* s) { sk_X509_pop_free(s, X509_free); }
using CertsPtr = std::unique_ptr<STACK_OF(X509), Free<freeCerts>>;

X509Ptr parseCert(const QByteArray& der) {
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    return X509Ptr(d2i_X509(nullptr, &in, der.size()));
}

QByteArray toDer(CMS_ContentInfo* cms) {
    const BioPtr out(BIO_new(BIO_s_mem()));
    EXPECT_EQ(i2d_CMS_bio(out.get(), cms), 1);
    BUF_MEM* buffer = nullptr;
    BIO_ctrl(out.get(), BIO_C_GET_BUF_MEM_PTR, 0, &buffer);
    return QByteArray(buffer->data, static_cast<qsizetype>(buffer->length));
}

CmsPtr envelope(const TestPki::Identity& recipient, const QByteArray& content, int typeNid,
                bool detached) {
    X509Ptr certificate = parseCert(recipient.certDer);
    const CertsPtr recipients(sk_X509_new_null());
    sk_X509_push(recipients.get(), certificate.release());
    const BioPtr in(BIO_new_mem_buf(content.constData(), static_cast<int>(content.size())));
    CmsPtr cms(CMS_encrypt(recipients.get(), nullptr, EVP_aes_256_cbc(),
                           CMS_BINARY | CMS_PARTIAL));
    EXPECT_TRUE(cms);
    EXPECT_EQ(CMS_set1_eContentType(cms.get(), OBJ_nid2obj(typeNid)), 1);
    EXPECT_EQ(CMS_final(cms.get(), in.get(), nullptr, CMS_BINARY), 1);
    if (detached) {
        EXPECT_EQ(CMS_set_detached(cms.get(), 1), 1);
    }
    return cms;
}

Decrypted finish(const QString& outcome, const QString& sender, const QString& outputPath) {
    Decrypted result{outcome, sender, QFile::exists(outputPath), {}, {}};
    if (result.outputWritten) {
        result.output = fileBytes(outputPath);
    }
    return result;
}

}  // namespace

QByteArray tlv(quint8 tag, const QByteArray& content) {
    QByteArray length;
    if (content.size() < 0x80) {
        length.append(static_cast<char>(content.size()));
    } else {
        for (auto rest = static_cast<quint64>(content.size()); rest != 0; rest >>= 8) {
            length.prepend(static_cast<char>(rest & 0xFF));
        }
        length.prepend(static_cast<char>(0x80 | length.size()));
    }
    return QByteArray(1, static_cast<char>(tag)) + length + content;
}

Decrypted decryptAs(const TestPki::Identity& identity, const QString& loginName,
                    const QByteArray& message, const QString& outputPath) {
    EXPECT_FALSE(QFile::exists(outputPath));
    QString sender = kSenderUntouched;
    const QString outcome = NivoCryptoOperation::decryptData(
        message, TestPki::profileFor(identity, loginName), TestPki::kPassword, outputPath, sender);
    return finish(outcome, sender, outputPath);
}

Decrypted decryptJudged(const TestPki::Identity& identity, const QString& loginName,
                        const QByteArray& message, const QString& outputPath,
                        const NivoCryptoOperation::SenderContext& context) {
    SenderVerdict verdict{.name = kSenderUntouched, .trust = {}, .impersonatedContact = {}};
    const QString outcome = NivoCryptoOperation::decryptData(
        message, TestPki::profileFor(identity, loginName), TestPki::kPassword, outputPath, verdict,
        context);
    Decrypted result = finish(outcome, verdict.name, outputPath);
    result.verdict = verdict;
    return result;
}

Decrypted decryptFileAs(const TestPki::Identity& identity, const QString& loginName,
                        const QString& inputPath, const QString& outputPath) {
    QString sender = kSenderUntouched;
    const QString outcome = NivoCryptoOperation::decryptFile(
        inputPath, TestPki::profileFor(identity, loginName), TestPki::kPassword, outputPath,
        sender);
    return finish(outcome, sender, outputPath);
}

QByteArray envelopeLabelled(const TestPki::Identity& recipient, const QByteArray& content,
                            int contentTypeNid) {
    const CmsPtr cms = envelope(recipient, content, contentTypeNid, false);
    return cms ? toDer(cms.get()) : QByteArray();
}

QByteArray envelopeDetached(const TestPki::Identity& recipient, const QByteArray& content) {
    const CmsPtr cms = envelope(recipient, content, NID_pkcs7_data, true);
    return cms ? toDer(cms.get()) : QByteArray();
}

QByteArray compressedMessage(const QByteArray& content) {
    const QByteArray compressedDataOid = QByteArray::fromHex("060b2a864886f70d0109100109");
    const QByteArray zlibOid = QByteArray::fromHex("060b2a864886f70d0109100308");
    const QByteArray dataOid = QByteArray::fromHex("06092a864886f70d010701");
    const QByteArray version = QByteArray::fromHex("020100");
    const QByteArray encapsulated =
        tlv(0x30, dataOid + tlv(0xa0, tlv(0x04, content)));
    const QByteArray compressedData = tlv(0x30, version + tlv(0x30, zlibOid) + encapsulated);
    return tlv(0x30, compressedDataOid + tlv(0xa0, compressedData));
}

QByteArray bareSignedData(const QByteArray& contentInfo) {
    // ContentInfo = SEQUENCE { OID, [0] { SignedData } }: skip the three headers.
    const auto* p = reinterpret_cast<const unsigned char*>(contentInfo.constData());
    long length = 0;
    int tag = 0;
    int tagClass = 0;
    ASN1_get_object(&p, &length, &tag, &tagClass, contentInfo.size());
    ASN1_get_object(&p, &length, &tag, &tagClass, contentInfo.size());
    p += length;
    ASN1_get_object(&p, &length, &tag, &tagClass, contentInfo.size());
    const auto offset = p - reinterpret_cast<const unsigned char*>(contentInfo.constData());
    return contentInfo.mid(offset, length);
}

}  // namespace CryptoTestKit

QByteArray PeopleTest::aliceToBob(const QByteArray& content) {
    const QString path = out(u"alice-to-bob.tvf"_s);
    EXPECT_EQ(NivoCryptoOperation::encryptData(content,
                                               TestPki::profileFor(alice(), u"alice"_s),
                                               TestPki::kPassword, {bob().certDer}, path),
              QString());
    const QByteArray message = fileBytes(path);
    QFile::remove(path);
    return message;
}
