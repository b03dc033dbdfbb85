#include <gtest/gtest.h>
#include <openssl/cms.h>
#include <openssl/pem.h>

#include <memory>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/CertificateTrust.h"
#include "crypto/NivoCryptoOperation.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;
using Trust = SenderVerdict::Trust;

namespace {

// Carol opens files signed by all kinds of people; the test PKI's root stands for the account
// service, and Bob is her contact.
class SenderVerdictTest : public PeopleTest {
protected:
    NivoCryptoOperation::SenderContext context() {
        NivoCryptoOperation::SenderContext context;
        context.serviceRoot = pki().ca().certDer;
        context.nivoIdOf = [bobDer = bob().certDer](const QByteArray& der) {
            return der == bobDer ? u"bob"_s : QString();
        };
        context.isContact = [](const QString& nivoId) { return nivoId == u"bob"; };
        return context;
    }

    // A file signed by `signer` (certificate included unless told otherwise) for Carol, opened.
    Decrypted openFrom(const TestPki& issuer, const TestPki::Identity& signer,
                       const QStringList& signArguments = {}, bool requireVerified = false) {
        const QByteArray message =
            pki().encrypt(issuer.sign("the content"_ba, {&signer}, signArguments), {&carol()});
        NivoCryptoOperation::SenderContext judged = context();
        judged.requireVerified = requireVerified;
        return decryptJudged(carol(), u"carol"_s, message, out(u"opened%1"_s.arg(++m_files)),
                             judged);
    }

    // `content` signed by `signer` with the signing time `signedAt` (UTC, "YYMMDDHHMMSSZ"), as
    // DER SignedData; built with OpenSSL itself, as the openssl command cannot date a signature.
    static QByteArray signedAt(const TestPki::Identity& signer, const char* signedAt) {
        // The memory BIOs borrow the bytes, which outlive them here.
        const QByteArray certificatePem = fileBytes(signer.certPath);
        const QByteArray keyPem = fileBytes(signer.keyPath);
        const auto pem = [](const QByteArray& bytes) {
            return std::unique_ptr<BIO, decltype(&BIO_free)>(
                BIO_new_mem_buf(bytes.constData(), static_cast<int>(bytes.size())), &BIO_free);
        };
        const std::unique_ptr<X509, decltype(&X509_free)> certificate(
            PEM_read_bio_X509(pem(certificatePem).get(), nullptr, nullptr, nullptr), &X509_free);
        const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
            PEM_read_bio_PrivateKey(pem(keyPem).get(), nullptr, nullptr, nullptr),
            &EVP_PKEY_free);
        const std::unique_ptr<CMS_ContentInfo, decltype(&CMS_ContentInfo_free)> cms(
            CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY),
            &CMS_ContentInfo_free);
        CMS_SignerInfo* info =
            CMS_add1_signer(cms.get(), certificate.get(), key.get(), EVP_sha256(), CMS_PARTIAL);
        const std::unique_ptr<ASN1_UTCTIME, decltype(&ASN1_UTCTIME_free)> time(
            ASN1_UTCTIME_new(), &ASN1_UTCTIME_free);
        EXPECT_EQ(ASN1_UTCTIME_set_string(time.get(), signedAt), 1);
        EXPECT_EQ(CMS_signed_add1_attr_by_NID(info, NID_pkcs9_signingTime, V_ASN1_UTCTIME,
                                              time.get(), -1),
                  1);
        const std::unique_ptr<BIO, decltype(&BIO_free)> content(BIO_new_mem_buf("dated", 5),
                                                                &BIO_free);
        EXPECT_EQ(CMS_final(cms.get(), content.get(), nullptr, CMS_BINARY), 1);
        unsigned char* der = nullptr;
        const int length = i2d_CMS_ContentInfo(cms.get(), &der);
        QByteArray bytes(reinterpret_cast<const char*>(der), length);
        OPENSSL_free(der);
        return bytes;
    }

    SenderVerdict::Trust trustOfDated(const TestPki::Identity& signer, const char* when) {
        const QByteArray message = pki().encrypt(signedAt(signer, when), {&carol()});
        const Decrypted opened = decryptJudged(carol(), u"carol"_s, message,
                                               out(u"dated%1"_s.arg(++m_files)), context());
        EXPECT_EQ(opened.outcome, u""_s);
        return opened.verdict.trust;
    }

    int m_files = 0;
};

TEST_F(SenderVerdictTest, OnlyServiceIssuedSignersAreVerified) {
    Decrypted opened = openFrom(pki(), alice());
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.verdict.name, alice().commonName);
    EXPECT_TRUE(opened.verdict.verified());
    EXPECT_EQ(opened.verdict.reason(), u""_s);

    opened = openFrom(pki(), bob());
    EXPECT_EQ(opened.verdict.name, u"bob"_s);
    EXPECT_TRUE(opened.verdict.verified());

    // Each file opens and is named as always, with the reason it cannot be believed.
    const TestPki stranger;
    const TestPki::Identity dave = const_cast<TestPki&>(stranger).createUser(u"Dave"_s);
    const struct {
        TestPki::Identity signer;
        Trust trust;
        QString reason;
    } cases[] = {
        {pki().createSelfSigned(u"Mallory"_s), Trust::SelfSigned, u"self-signed certificate"_s},
        {dave, Trust::OtherAuthority, u"issued by another authority"_s},
        {pki().createUserValid(u"Old"_s, u"20200101000000Z"_s, u"20200201000000Z"_s),
         Trust::Expired, u"certificate expired at signing time"_s},
        {pki().createUserValid(u"Early"_s, u"20990101000000Z"_s, u"20991231000000Z"_s),
         Trust::NotYetValid, u"certificate not yet valid at signing time"_s},
        {pki().createUserValid(u"Sealer"_s, u"20200101000000Z"_s, u"20991231000000Z"_s,
                               u"keyEncipherment"_s),
         Trust::NotForSigning, u"certificate not meant for signing"_s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.signer.commonName.toStdString());
        opened = openFrom(c.signer.commonName == u"Dave" ? stranger : pki(), c.signer);
        EXPECT_EQ(opened.outcome, u""_s);
        EXPECT_EQ(opened.output, "the content"_ba);
        EXPECT_EQ(opened.verdict.name, c.signer.commonName);
        EXPECT_EQ(opened.verdict.trust, c.trust);
        EXPECT_EQ(opened.verdict.reason(), c.reason);
    }

    // Carol's own signature without the certificate in the file is checked with her key, but no
    // certificate says who signed.
    opened = openFrom(pki(), carol(), {u"-nocerts"_s});
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.sender, kSenderUntouched);
    EXPECT_EQ(opened.verdict.reason(), u"no signer certificate in the file"_s);
}

TEST_F(SenderVerdictTest, TheCertificateCountsAtTheSignedTimeUnlessThatIsInTheFuture) {
    const TestPki::Identity old =
        pki().createUserValid(u"Old"_s, u"20200101000000Z"_s, u"20200201000000Z"_s);
    EXPECT_EQ(trustOfDated(old, "200115120000Z"), Trust::Verified);
    EXPECT_EQ(trustOfDated(old, "191231120000Z"), Trust::NotYetValid);
    EXPECT_EQ(trustOfDated(old, "200301000000Z"), Trust::Expired);
    // A claimed time to come proves nothing: the certificate must be valid now.
    EXPECT_EQ(trustOfDated(old, "490101000000Z"), Trust::Expired);
    EXPECT_EQ(trustOfDated(alice(), "490101000000Z"), Trust::Verified);
}

TEST_F(SenderVerdictTest, AStrangerTakingAContactsNameIsCalledOut) {
    const TestPki::Identity forged = pki().createSelfSigned(u"BOB"_s);
    Decrypted opened = openFrom(pki(), forged);
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.verdict.name, u"BOB"_s);
    EXPECT_FALSE(opened.verdict.verified());
    EXPECT_EQ(opened.verdict.reason(),
              u"self-signed certificate; not the certificate stored for contact bob"_s);

    // Required to be verified, it fails and nothing is written.
    opened = openFrom(pki(), forged, {}, true);
    EXPECT_EQ(opened.outcome,
              NivoCryptoOperation::kUnverifiedSender.arg(
                  u"self-signed certificate; not the certificate stored for contact bob"_s));
    EXPECT_FALSE(opened.outputWritten);
    EXPECT_EQ(opened.sender, kSenderUntouched);
    EXPECT_EQ(openFrom(pki(), carol(), {u"-nocerts"_s}, true).outcome,
              NivoCryptoOperation::kUnverifiedSender.arg(u"no signer certificate in the file"_s));
    opened = openFrom(pki(), alice(), {}, true);
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_TRUE(opened.outputWritten);
}

TEST_F(SenderVerdictTest, ContactKeysMustComeFromTheServiceUnderTheirOwnName) {
    const QByteArray root = pki().ca().certDer;
    EXPECT_EQ(CertificateTrust::contactCertificateProblem(alice().certDer, u"alice sender"_s, root),
              u""_s);
    EXPECT_EQ(CertificateTrust::contactCertificateProblem(alice().certDer, u"bob"_s, root),
              u"certificate made out to \"Alice Sender\""_s);
    EXPECT_EQ(CertificateTrust::contactCertificateProblem(pki().createSelfSigned(u"bob"_s).certDer,
                                                          u"bob"_s, root),
              u"self-signed certificate"_s);
    EXPECT_EQ(CertificateTrust::contactCertificateProblem(
                  pki().createUserValid(u"bob"_s, u"20200101000000Z"_s, u"20200201000000Z"_s)
                      .certDer,
                  u"bob"_s, root),
              u"certificate expired"_s);
    EXPECT_EQ(CertificateTrust::contactCertificateProblem("not DER"_ba, u"bob"_s, root),
              u"unreadable certificate"_s);

    const auto details = CertificateTrust::describe(alice().certDer);
    ASSERT_TRUE(details);
    EXPECT_EQ(details->subject, u"CN = Alice Sender"_s);
    EXPECT_EQ(details->issuer, u"CN = NIVO-GX Test Root CA"_s);
    EXPECT_LT(details->notBefore, details->notAfter);
    // The same fingerprint the openssl command shows.
    const QByteArray shown = pki().openssl(
        {u"x509"_s, u"-in"_s, alice().certPath, u"-noout"_s, u"-fingerprint"_s, u"-sha256"_s});
    EXPECT_EQ(u"sha256 Fingerprint="_s + details->sha256 + u'\n', QString::fromLatin1(shown));
}

}  // namespace
