#include <gtest/gtest.h>
#include <openssl/err.h>

#include <QTemporaryDir>

#include "TestPki.h"
#include "crypto/ComTruvexIO_MemoryStream.h"
#include "crypto/TVXCryptoProvider.h"
#include "crypto/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/comTruvexCrypto_X509CertificateLoader.h"
#include "crypto/comTruvexCrypto_X509CertificateValidator.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

TVXX509Certificate loadCertificate(const QByteArray& der) {
    auto loader =
        comTruvexCrypto_X509CertificateLoader::loaderCryptoProvider(TVXDefaultCryptoProvider());
    ComTruvexIO_MemoryStream stream(der);
    loader.loadFromStream(stream);
    return loader.x509Certificate();
}

// The exception that loading `pfx` with `password` throws; fails the test when none is thrown.
std::optional<TVXException> pfxFailure(const QByteArray& pfx, const QString& password) {
    auto loader = comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(TVXDefaultCryptoProvider());
    ComTruvexIO_MemoryStream stream(pfx);
    try {
        loader.loadFromStream(stream, password);
    } catch (const TVXException& e) {
        return e;
    }
    ADD_FAILURE() << "loading did not throw";
    return std::nullopt;
}

TEST(KeyFileTest, ModernAndLegacyKeyFilesOpenAndWrongPasswordsAreNamed) {
    TestPki pki;
    const TestPki::Identity alice = pki.createUser(u"Alice"_s);
    const QByteArray legacy = pki.exportPfx(alice, u"old export"_s, true);
    const QByteArray unprotected = pki.exportPfx(alice, u""_s);

    // A wrong password is reported as such, for modern and old files alike, never as
    // "unsupported" (the legacy algorithms are not even loaded yet); the error queue is left
    // empty.
    for (const QByteArray& pfx : {alice.pfx, legacy}) {
        const auto failure = pfxFailure(pfx, u"wrong"_s);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->name(), TVXWrongPasswordException);
        EXPECT_TRUE(failure->description().contains(u"password"_s));
        EXPECT_FALSE(failure->description().contains(u"unsupported"_s, Qt::CaseInsensitive));
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }

    for (const auto& [pfx, password] : {std::pair{alice.pfx, TestPki::kPassword},
                                        std::pair{legacy, u"old export"_s},
                                        std::pair{unprotected, u""_s}}) {
        auto loader =
            comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(TVXDefaultCryptoProvider());
        ComTruvexIO_MemoryStream stream(pfx);
        loader.loadFromStream(stream, password);
        EXPECT_EQ(loader.x509Certificate().asRawData(), alice.certDer);
        EXPECT_TRUE(loader.privateKey());
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
    // The legacy algorithms were loaded because the old export needed them.
    EXPECT_TRUE(TVXDefaultCryptoProvider().legacyAlgorithmsLoaded());
    const auto stillWrong = pfxFailure(legacy, u"wrong"_s);
    ASSERT_TRUE(stillWrong);
    EXPECT_EQ(stillWrong->name(), TVXWrongPasswordException);

    // Data that is no key file at all is not a password problem.
    for (const QByteArray& junk : {"not a key file"_ba, alice.certDer}) {
        const auto failure = pfxFailure(junk, TestPki::kPassword);
        ASSERT_TRUE(failure);
        EXPECT_NE(failure->name(), TVXWrongPasswordException);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
}

TEST(KeyFileTest, AMissingLegacyProviderIsSaidClearly) {
    if (TVXDefaultCryptoProvider().legacyAlgorithmsLoaded()) {
        GTEST_SKIP() << "legacy algorithms already loaded in this process";
    }
    TestPki pki;
    const TestPki::Identity alice = pki.createUser(u"Alice"_s);
    const QByteArray legacy = pki.exportPfx(alice, u"old export"_s, true);
    // OpenSSL looks for provider modules here when it first loads one.
    const QTemporaryDir noModules;
    qputenv("OPENSSL_MODULES", QFile::encodeName(noModules.path()));

    const auto failure = pfxFailure(legacy, u"old export"_s);
    qunsetenv("OPENSSL_MODULES");
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->name(), TVXNotSupportedException);
    EXPECT_TRUE(failure->description().contains(u"legacy provider"_s)) << failure->what();
    EXPECT_FALSE(TVXDefaultCryptoProvider().legacyAlgorithmsLoaded());
}

TEST(CertificateTest, LoaderReadsDerAndNamesTheSubject) {
    TestPki pki;
    const TestPki::Identity zoe = pki.createUser(u"Zoë Ünal-Łukasz"_s);
    const TVXX509Certificate certificate = loadCertificate(zoe.certDer);
    EXPECT_EQ(certificate.subjectCN(), u"Zoë Ünal-Łukasz"_s);
    EXPECT_EQ(certificate.asRawData(), zoe.certDer);

    // PEM is not DER, and neither is noise; the description carries OpenSSL's reasons.
    const QByteArray pem = pki.openssl({u"x509"_s, u"-in"_s, zoe.certPath});
    for (const QByteArray& junk : {pem, "\x30\x03\x02\x01"_ba, QByteArray()}) {
        try {
            (void)loadCertificate(junk);
            ADD_FAILURE() << "no exception";
        } catch (const TVXException& e) {
            EXPECT_FALSE(e.description().isEmpty());
            EXPECT_FALSE(e.file().isEmpty());
            EXPECT_FALSE(e.method().isEmpty());
            EXPECT_GT(e.line(), 0);
        }
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }
}

TEST(CertificateTest, ValidatorAcceptsOnlyChainsToTheGivenRoots) {
    TestPki pki;
    const TestPki::Identity alice = pki.createUser(u"Alice"_s);
    const TestPki::Identity intermediate = pki.createIntermediateCa(u"Issuing CA"_s);
    const TestPki::Identity bob = pki.createUser(u"Bob"_s, TestPki::KeyType::Rsa, &intermediate);
    const TestPki::Identity stranger = pki.createSelfSigned(u"Stranger"_s);

    const TVXX509Certificate root = loadCertificate(pki.ca().certDer);
    const TVXX509Certificate issuing = loadCertificate(intermediate.certDer);
    const auto validator = [](QList<TVXX509Certificate> roots,
                              QList<TVXX509Certificate> intermediates) {
        return comTruvexCrypto_X509CertificateValidator::validatorCryptoProvider(
            TVXDefaultCryptoProvider(), std::move(roots), std::move(intermediates));
    };

    EXPECT_TRUE(validator({root}, {}).validateX509Certificate(loadCertificate(alice.certDer)));
    EXPECT_FALSE(validator({}, {}).validateX509Certificate(loadCertificate(alice.certDer)));
    EXPECT_FALSE(validator({root}, {}).validateX509Certificate(loadCertificate(bob.certDer)));
    EXPECT_TRUE(
        validator({root}, {issuing}).validateX509Certificate(loadCertificate(bob.certDer)));
    EXPECT_FALSE(
        validator({root}, {issuing}).validateX509Certificate(loadCertificate(stranger.certDer)));
    EXPECT_EQ(ERR_peek_error(), 0UL);
}

}  // namespace
