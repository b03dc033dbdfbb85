#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <QTemporaryDir>

#include "TestPki.h"
#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateLoader.h"
#include "crypto/toolkit/comTruvexCrypto_X509CertificateValidator.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

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

PKCS12* pkcs12Of(const QByteArray& der) {
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    return d2i_PKCS12(nullptr, &in, der.size());
}

QByteArray derOfAndFree(PKCS12* p12) {
    unsigned char* der = nullptr;
    const int length = i2d_PKCS12(p12, &der);
    QByteArray bytes(reinterpret_cast<const char*>(der), length);
    OPENSSL_free(der);
    PKCS12_free(p12);
    return bytes;
}

// `pfx` with the MAC declaring `rounds`; the MAC itself no longer matches.
QByteArray withMacRounds(const QByteArray& pfx, uint64_t rounds) {
    PKCS12* p12 = pkcs12Of(pfx);
    const ASN1_INTEGER* iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, p12);
    EXPECT_NE(iterations, nullptr);
    if (iterations != nullptr) {
        ASN1_INTEGER_set_uint64(const_cast<ASN1_INTEGER*>(iterations), rounds);
    }
    return derOfAndFree(p12);
}

// `pfx` with every protected private key declaring `algorithm` (no key is derived here) and a
// fresh one-round MAC under `password`, so that the file opens up to the keys.
QByteArray withKeyAlgorithm(const QByteArray& pfx, const QByteArray& password,
                            X509_ALGOR* algorithm) {
    EXPECT_NE(algorithm, nullptr);
    PKCS12* p12 = pkcs12Of(pfx);
    STACK_OF(PKCS7)* parts = PKCS12_unpack_authsafes(p12);
    int replaced = 0;
    for (int i = 0; i < sk_PKCS7_num(parts); ++i) {
        PKCS7* part = sk_PKCS7_value(parts, i);
        if (!PKCS7_type_is_data(part)) {
            continue;
        }
        STACK_OF(PKCS12_SAFEBAG)* bags = PKCS12_unpack_p7data(part);
        for (int j = 0; j < sk_PKCS12_SAFEBAG_num(bags); ++j) {
            PKCS12_SAFEBAG* bag = sk_PKCS12_SAFEBAG_value(bags, j);
            if (PKCS12_SAFEBAG_get_nid(bag) == NID_pkcs8ShroudedKeyBag) {
                X509_ALGOR* declared = nullptr;
                X509_SIG_getm(const_cast<X509_SIG*>(PKCS12_SAFEBAG_get0_pkcs8(bag)), &declared,
                              nullptr);
                replaced += X509_ALGOR_copy(declared, algorithm);
            }
        }
        sk_PKCS7_set(parts, i, PKCS12_pack_p7data(bags));
        PKCS7_free(part);
        sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
    }
    EXPECT_EQ(replaced, 1);
    PKCS12_pack_authsafes(p12, parts);
    sk_PKCS7_pop_free(parts, PKCS7_free);
    PKCS12_set_mac(p12, password.constData(), -1, nullptr, 0, 1, nullptr);
    const QByteArray result = derOfAndFree(p12);
    X509_ALGOR_free(algorithm);
    return result;
}

// A key file from outside sets its own password rounds. Without a cap each of these would keep
// the program busy for a long time (billions of rounds, or a memory-hard derivation whose cost
// the file sets); they are refused before any derivation, and a file whose keys declare a
// moderate count still opens.
TEST(KeyFileTest, KeyFilesDeclaringTooMuchPasswordWorkAreRefusedUpFront) {
    TestPki pki;
    const TestPki::Identity alice = pki.createUser(u"Alice"_s);
    const QByteArray password = TestPki::kPassword.toUtf8();
    const QList<std::pair<const char*, QByteArray>> hostile = {
        {"MAC", withMacRounds(alice.pfx, 1ULL << 40)},
        {"key, PBKDF2",
         withKeyAlgorithm(alice.pfx, password,
                          PKCS5_pbe2_set_iv(EVP_aes_256_cbc(), 2'000'000'000, nullptr, 0, nullptr,
                                            NID_hmacWithSHA256))},
        {"key, memory-hard",
         withKeyAlgorithm(alice.pfx, password,
                          // Within OpenSSL's memory bound; some minutes of work.
                          PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, 0, nullptr,
                                                1ULL << 14, 8, 15'000))},
    };
    for (const auto& [what, pfx] : hostile) {
        SCOPED_TRACE(what);
        const auto failure = pfxFailure(pfx, TestPki::kPassword);
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->description(),
                  u"The key file asks for too many password rounds to be opened"_s);
        EXPECT_EQ(ERR_peek_error(), 0UL);
    }

    // A careful writer's 600,000 rounds for the MAC, the certificates and the key (1.8 million
    // in all) are well within the cap.
    const QByteArray careful = pki.openssl({u"pkcs12"_s, u"-export"_s, u"-inkey"_s, alice.keyPath,
                                            u"-in"_s, alice.certPath, u"-iter"_s, u"600000"_s,
                                            u"-passout"_s, u"pass:"_s + TestPki::kPassword});
    auto loader = comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(TVXDefaultCryptoProvider());
    ComTruvexIO_MemoryStream stream(careful);
    loader.loadFromStream(stream, TestPki::kPassword);
    EXPECT_EQ(loader.x509Certificate().asRawData(), alice.certDer);
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
