#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/x509.h>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <algorithm>
#include <memory>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/TVXException.h"
#include "crypto/toolkit/TVXRandom.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;

namespace {

using CmsPtr = std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)>;

CmsPtr parse(const QByteArray& der) {
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    return {d2i_CMS_ContentInfo(nullptr, &in, der.size()), &CMS_ContentInfo_free};
}

long serialOf(const QByteArray& certificateDer) {
    const auto* in = reinterpret_cast<const unsigned char*>(certificateDer.constData());
    std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &in, certificateDer.size()), &X509_free);
    return ASN1_INTEGER_get(X509_get0_serialNumber(certificate.get()));
}

int nidOf(const X509_ALGOR* algorithm) {
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    return OBJ_obj2nid(object);
}

// Serial numbers of the recipient entries, in message order.
QList<long> recipientSerials(const QByteArray& message) {
    QList<long> serials;
    const CmsPtr cms = parse(message);
    STACK_OF(CMS_RecipientInfo)* infos = CMS_get0_RecipientInfos(cms.get());
    for (int i = 0; i < sk_CMS_RecipientInfo_num(infos); ++i) {
        ASN1_INTEGER* serial = nullptr;
        CMS_RecipientInfo_ktri_get0_signer_id(sk_CMS_RecipientInfo_value(infos, i), nullptr,
                                              nullptr, &serial);
        serials.append(serial != nullptr ? ASN1_INTEGER_get(serial) : -1);
    }
    return serials;
}

class CmsOperationTest : public PeopleTest {
protected:
    void TearDown() override { NivoCryptoOperation::setSenderContext({}); }
    static void nameContacts(NivoCryptoOperation::NivoIdLookup lookup) {
        NivoCryptoOperation::SenderContext context;
        context.nivoIdOf = std::move(lookup);
        NivoCryptoOperation::setSenderContext(std::move(context));
    }

    QByteArray encryptAsAlice(const QByteArray& content, const QList<QByteArray>& recipients,
                              const QString& name = u"message.tvf"_s) {
        const QString path = out(name);
        EXPECT_EQ(NivoCryptoOperation::encryptData(content, TestPki::profileFor(alice(), u"alice"_s),
                                                   TestPki::kPassword, recipients, path),
                  u""_s);
        return fileBytes(path);
    }
};

TEST_F(CmsOperationTest, ProtectedFileUsesTheFixedAlgorithmsAndLayering) {
    const QByteArray content = "quarterly figures\0with a zero byte"_ba;
    const QByteArray message = encryptAsAlice(content, {bob().certDer});

    const CmsPtr outer = parse(message);
    ASSERT_TRUE(outer);
    EXPECT_EQ(OBJ_obj2nid(CMS_get0_type(outer.get())), NID_pkcs7_enveloped);
    EXPECT_EQ(OBJ_obj2nid(CMS_get0_eContentType(outer.get())), NID_pkcs7_data);

    // Key transport: RSA-OAEP with SHA-256 and MGF1-SHA-256 for every recipient, parameters
    // SEQUENCE { [0] sha256, [1] { mgf1, sha256 } } as DER.
    const QByteArray oaepSha256 = QByteArray::fromHex(
        "302ba00d300b0609608648016503040201a11a301806092a864886f70d010108300b0609608648016503040201");
    STACK_OF(CMS_RecipientInfo)* infos = CMS_get0_RecipientInfos(outer.get());
    ASSERT_EQ(sk_CMS_RecipientInfo_num(infos), 2);
    for (int i = 0; i < 2; ++i) {
        X509_ALGOR* keyEncryption = nullptr;
        CMS_RecipientInfo_ktri_get0_algs(sk_CMS_RecipientInfo_value(infos, i), nullptr, nullptr,
                                         &keyEncryption);
        ASSERT_EQ(nidOf(keyEncryption), NID_rsaesOaep);
        int type = 0;
        const void* value = nullptr;
        X509_ALGOR_get0(nullptr, &type, &value, keyEncryption);
        ASSERT_EQ(type, V_ASN1_SEQUENCE);
        const auto* parameters = static_cast<const ASN1_STRING*>(value);
        EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(ASN1_STRING_get0_data(parameters)),
                             ASN1_STRING_length(parameters)),
                  oaepSha256);
    }

    // Content cipher, as the openssl command reports it.
    const QString printed = QString::fromUtf8(pki().openssl(
        {u"cms"_s, u"-cmsout"_s, u"-print"_s, u"-inform"_s, u"DER"_s}, message));
    const auto cipher = QRegularExpression(u"contentEncryptionAlgorithm:\\s*algorithm: (\\S+)"_s)
                            .match(printed);
    ASSERT_TRUE(cipher.hasMatch()) << printed.toStdString();
    EXPECT_EQ(cipher.captured(1), u"aes-256-cbc"_s);

    // Inside: a whole ContentInfo(SignedData), SHA-256, signed attributes, Alice's certificate.
    const QByteArray inner = pki().openssl({u"cms"_s, u"-decrypt"_s, u"-binary"_s, u"-inform"_s,
                                            u"DER"_s, u"-recip"_s, bob().certPath, u"-inkey"_s,
                                            bob().keyPath},
                                           message);
    const CmsPtr signedMessage = parse(inner);
    ASSERT_TRUE(signedMessage);
    EXPECT_EQ(OBJ_obj2nid(CMS_get0_type(signedMessage.get())), NID_pkcs7_signed);
    ASSERT_EQ(*CMS_get0_content(signedMessage.get()) != nullptr, true);
    EXPECT_EQ(QByteArray(reinterpret_cast<const char*>(ASN1_STRING_get0_data(
                             *CMS_get0_content(signedMessage.get()))),
                         ASN1_STRING_length(*CMS_get0_content(signedMessage.get()))),
              content);
    STACK_OF(CMS_SignerInfo)* signers = CMS_get0_SignerInfos(signedMessage.get());
    ASSERT_EQ(sk_CMS_SignerInfo_num(signers), 1);
    CMS_SignerInfo* signer = sk_CMS_SignerInfo_value(signers, 0);
    X509_ALGOR* digest = nullptr;
    X509_ALGOR* signature = nullptr;
    CMS_SignerInfo_get0_algs(signer, nullptr, nullptr, &digest, &signature);
    EXPECT_EQ(nidOf(digest), NID_sha256);
    EXPECT_TRUE(nidOf(signature) == NID_rsaEncryption ||
                nidOf(signature) == NID_sha256WithRSAEncryption);
    for (const int attribute : {NID_pkcs9_contentType, NID_pkcs9_messageDigest,
                                NID_pkcs9_signingTime}) {
        EXPECT_GE(CMS_signed_get_attr_by_NID(signer, attribute, -1), 0) << OBJ_nid2sn(attribute);
    }
    std::unique_ptr<STACK_OF(X509), void (*)(STACK_OF(X509)*)> certificates(
        CMS_get1_certs(signedMessage.get()),
        [](STACK_OF(X509)* s) { sk_X509_pop_free(s, X509_free); });
    ASSERT_EQ(sk_X509_num(certificates.get()), 1);
    EXPECT_EQ(CMS_SignerInfo_cert_cmp(signer, sk_X509_value(certificates.get(), 0)), 0);
}

TEST_F(CmsOperationTest, DuplicateRecipientsAreKeptAndTheUserIsAlwaysARecipient) {
    const long a = serialOf(alice().certDer);
    const long b = serialOf(bob().certDer);

    // DER sorts the recipient entries of the SET, so the encoded order is not the order given;
    // what counts is that every entry is there, duplicates and the user's own included.
    const auto sorted = [](QList<long> serials) {
        std::sort(serials.begin(), serials.end());
        return serials;
    };
    EXPECT_EQ(recipientSerials(encryptAsAlice("x"_ba, {})), (QList<long>{a}));
    EXPECT_EQ(sorted(recipientSerials(
                  encryptAsAlice("x"_ba, {bob().certDer, alice().certDer, bob().certDer}))),
              sorted({b, a, b, a}));
    EXPECT_EQ(sorted(recipientSerials(encryptAsAlice("x"_ba, {bob().certDer}))),
              sorted({b, a}));

    // With no recipient at all, only the user can open the file.
    const QByteArray onlyMine = encryptAsAlice("mine"_ba, {});
    EXPECT_EQ(decryptAs(alice(), u"alice"_s, onlyMine, out(u"a.txt"_s)).output, "mine"_ba);
    EXPECT_EQ(decryptAs(bob(), u"bob"_s, onlyMine, out(u"b.txt"_s)).outcome,
              NivoCryptoOperation::kNotRecipient);
}

TEST_F(CmsOperationTest, EveryRecipientOpensTheFileAndTheSenderIsNamed) {
    const QByteArray content = TVXRandom::randomDataWithLength(70000);
    const QByteArray message = encryptAsAlice(content, {bob().certDer, carol().certDer});

    // Unknown sender: the certificate's common name.
    Decrypted opened = decryptAs(bob(), u"bob"_s, message, out(u"1"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, content);
    EXPECT_EQ(opened.sender, alice().commonName);

    // A contact: the NIVO ID from the lookup; a lookup without answer keeps the common name.
    const QByteArray aliceDer = alice().certDer;
    nameContacts([aliceDer](const QByteArray& der) {
        return der == aliceDer ? u"alice.nivo"_s : QString();
    });
    EXPECT_EQ(decryptAs(carol(), u"carol"_s, message, out(u"2"_s)).sender, u"alice.nivo"_s);
    nameContacts([](const QByteArray&) { return u""_s; });
    EXPECT_EQ(decryptAs(carol(), u"carol"_s, message, out(u"3"_s)).sender, alice().commonName);

    // The user's own file names the user by login name, whatever the contacts say.
    nameContacts([](const QByteArray&) { return u"someone.else"_s; });
    opened = decryptAs(alice(), u"alice"_s, message, out(u"4"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.sender, u"alice"_s);
    EXPECT_EQ(opened.output, content);
}

TEST_F(CmsOperationTest, AnExistingOutputFileIsReplacedNotAppendedTo) {
    const QByteArray junk(50000, 'J');
    ASSERT_TRUE(putFile(out(u"message.tvf"_s), junk));
    const QByteArray message = encryptAsAlice("short"_ba, {bob().certDer});
    EXPECT_LT(message.size(), junk.size());
    EXPECT_FALSE(message.contains("JJJJ"));

    ASSERT_TRUE(putFile(out(u"plain.txt"_s), junk));
    QString sender;
    EXPECT_EQ(NivoCryptoOperation::decryptData(message, TestPki::profileFor(bob(), u"bob"_s),
                                               TestPki::kPassword, out(u"plain.txt"_s), sender),
              u""_s);
    EXPECT_EQ(fileBytes(out(u"plain.txt"_s)), "short"_ba);
    // Decrypted content is the user's alone.
    EXPECT_EQ(QFile::permissions(out(u"plain.txt"_s)) & (QFile::ReadGroup | QFile::ReadOther),
              QFile::Permissions());
}

TEST_F(CmsOperationTest, EncryptFailuresThrowAndKeepTheEarlierOutput) {
    const QString path = out(u"kept.tvf"_s);
    ASSERT_TRUE(putFile(path, "earlier"_ba));
    const NivoProfile profile = TestPki::profileFor(alice(), u"alice"_s);

    try {
        (void)NivoCryptoOperation::encryptData("x"_ba, profile, u"not the password"_s,
                                               {bob().certDer}, path);
        ADD_FAILURE() << "a wrong password must throw";
    } catch (const TVXException& e) {
        EXPECT_EQ(e.name(), TVXWrongPasswordException);
        EXPECT_TRUE(e.description().contains(u"password"_s)) << e.what();
    }
    EXPECT_THROW((void)NivoCryptoOperation::encryptData("x"_ba, profile, TestPki::kPassword,
                                                        {bob().certDer, "not a certificate"_ba},
                                                        path),
                 TVXException);
    EXPECT_EQ(fileBytes(path), "earlier"_ba);
}

TEST_F(CmsOperationTest, EllipticCurveUsersExchangeFiles) {
    const TestPki::Identity dave = pki().createUser(u"Dave Curve"_s, TestPki::KeyType::Ec);
    const QByteArray toDave = encryptAsAlice("for dave"_ba, {dave.certDer});
    const QString printed = QString::fromUtf8(pki().openssl(
        {u"cms"_s, u"-cmsout"_s, u"-print"_s, u"-inform"_s, u"DER"_s}, toDave));
    EXPECT_TRUE(printed.contains(u"dhSinglePass-stdDH-sha256kdf-scheme"_s)) << printed.toStdString();
    Decrypted opened = decryptAs(dave, u"dave"_s, toDave, out(u"d1"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, "for dave"_ba);
    EXPECT_EQ(opened.sender, alice().commonName);

    const QString path = out(u"from-dave.tvf"_s);
    ASSERT_EQ(NivoCryptoOperation::encryptData("from dave"_ba, TestPki::profileFor(dave, u"dave"_s),
                                               TestPki::kPassword, {alice().certDer}, path),
              u""_s);
    opened = decryptAs(alice(), u"alice"_s, fileBytes(path), out(u"d2"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, "from dave"_ba);
    EXPECT_EQ(opened.sender, dave.commonName);
}

}  // namespace
