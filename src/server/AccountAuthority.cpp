#include "server/AccountAuthority.h"

#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509v3.h>

#include <QFile>

#include "crypto/cms/OpenSsl.h"

using namespace nivossl;

namespace {

using X509NamePtr = std::unique_ptr<X509_NAME, Free<X509_NAME_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, Free<BN_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Free<EVP_PKEY_CTX_free>>;
using ExtensionPtr = std::unique_ptr<X509_EXTENSION, Free<X509_EXTENSION_free>>;

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

X509Ptr parseCertificate(const QByteArray& bytes) {
    BioPtr bio = readOnlyBio(bytes);
    X509Ptr cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert) {
        const auto* der = reinterpret_cast<const unsigned char*>(bytes.constData());
        cert.reset(d2i_X509(nullptr, &der, static_cast<long>(bytes.size())));
    }
    ERR_clear_error();
    return cert;
}

PkeyPtr generateRsaKey(int bits) {
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* key = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), bits) <= 0 ||
        EVP_PKEY_keygen(ctx.get(), &key) <= 0) {
        return nullptr;
    }
    return PkeyPtr(key);
}

bool addExtension(X509* cert, X509V3_CTX* ctx, int nid, const char* value) {
    ExtensionPtr ext(X509V3_EXT_conf_nid(nullptr, ctx, nid, value));
    return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

QByteArray pack(EVP_PKEY* key, X509* cert, X509* ca, const QString& loginName,
                const QString& password) {
    const QByteArray pass = password.toUtf8();
    const QByteArray name = loginName.toUtf8();
    CertStackPtr chain(sk_X509_new_null());
    if (!chain) {
        return {};
    }
    if (ca != nullptr) {
        X509Ptr caRef = upRef(ca);
        if (sk_X509_push(chain.get(), caRef.get()) <= 0) {
            return {};
        }
        (void)caRef.release();  // the stack owns it now
    }
    // PBES2 with AES-256-CBC for both bags; the MAC is added separately to get SHA-256.
    Pkcs12Ptr p12(PKCS12_create(pass.constData(), name.isEmpty() ? nullptr : name.constData(), key,
                                cert, chain.get(), NID_aes_256_cbc, NID_aes_256_cbc,
                                AccountAuthority::kPkcs12Iterations, -1, 0));
    if (!p12 || PKCS12_set_mac(p12.get(), pass.constData(), -1, nullptr, 0,
                               AccountAuthority::kPkcs12Iterations, EVP_sha256()) != 1) {
        return {};
    }
    unsigned char* der = nullptr;
    const int length = i2d_PKCS12(p12.get(), &der);
    if (length <= 0) {
        return {};
    }
    QByteArray bytes(reinterpret_cast<const char*>(der), length);
    OPENSSL_free(der);
    return bytes;
}

}  // namespace

struct AccountAuthority::Ca {
    X509Ptr cert;
    PkeyPtr key;
};

AccountAuthority::AccountAuthority(const QString& caCertificatePath, const QString& caKeyPath)
    : m_ca(std::make_unique<Ca>()) {
    m_ca->cert = parseCertificate(readFile(caCertificatePath));
    const QByteArray keyPem = readFile(caKeyPath);
    BioPtr bio = readOnlyBio(keyPem);
    m_ca->key.reset(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    if (m_ca->cert && m_ca->key && X509_check_private_key(m_ca->cert.get(), m_ca->key.get()) != 1) {
        m_ca->key.reset();
    }
    ERR_clear_error();
}

AccountAuthority::~AccountAuthority() = default;

bool AccountAuthority::isValid() const noexcept {
    return m_ca->cert && m_ca->key;
}

std::optional<AccountAuthority::Issued> AccountAuthority::issue(const QString& loginName,
                                                                const QString& password,
                                                                quint64 number) const {
    if (!isValid()) {
        return std::nullopt;
    }
    PkeyPtr key = generateRsaKey(m_userKeyBits);
    X509Ptr cert(X509_new());
    // number << 64 | 64 random bits: unique by the number, unpredictable by the rest.
    BignumPtr serial(BN_new());
    BignumPtr random(BN_new());
    if (!key || !cert || !serial || !random || BN_set_word(serial.get(), number) != 1 ||
        BN_lshift(serial.get(), serial.get(), 64) != 1 ||
        BN_rand(random.get(), 64, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
        BN_add(serial.get(), serial.get(), random.get()) != 1 ||
        X509_set_version(cert.get(), X509_VERSION_3) != 1 ||
        BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) == nullptr) {
        ERR_clear_error();
        return std::nullopt;
    }
    const QByteArray commonName = loginName.toUtf8();
    X509_NAME* subject = X509_get_subject_name(cert.get());  // get0: owned by the certificate
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, m_ca->cert.get(), cert.get(), nullptr, nullptr, 0);
    const bool built =
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(commonName.constData()),
                                   static_cast<int>(commonName.size()), -1, 0) == 1 &&
        X509_set_issuer_name(cert.get(), X509_get_subject_name(m_ca->cert.get())) == 1 &&
        X509_gmtime_adj(X509_getm_notBefore(cert.get()), -300) != nullptr &&
        X509_time_adj_ex(X509_getm_notAfter(cert.get()), kCertificateValidityDays, 0, nullptr) !=
            nullptr &&
        X509_set_pubkey(cert.get(), key.get()) == 1 &&
        addExtension(cert.get(), &ctx, NID_basic_constraints, "critical,CA:FALSE") &&
        addExtension(cert.get(), &ctx, NID_key_usage,
                     "critical,digitalSignature,nonRepudiation,keyEncipherment") &&
        addExtension(cert.get(), &ctx, NID_ext_key_usage, "emailProtection") &&
        addExtension(cert.get(), &ctx, NID_subject_key_identifier, "hash") &&
        addExtension(cert.get(), &ctx, NID_authority_key_identifier, "keyid:always") &&
        X509_sign(cert.get(), m_ca->key.get(), EVP_sha256()) > 0;
    if (!built) {
        ERR_clear_error();
        return std::nullopt;
    }
    Issued issued;
    issued.pfx = pack(key.get(), cert.get(), m_ca->cert.get(), loginName, password);
    unsigned char* der = nullptr;
    const int length = i2d_X509(cert.get(), &der);
    if (length > 0) {
        issued.certificate = QByteArray(reinterpret_cast<const char*>(der), length);
        OPENSSL_free(der);
    }
    ERR_clear_error();
    if (issued.pfx.isEmpty() || issued.certificate.isEmpty()) {
        return std::nullopt;
    }
    return issued;
}

std::optional<QByteArray> AccountAuthority::reprotect(const QByteArray& pfx,
                                                      const QString& oldPassword,
                                                      const QString& newPassword) {
    const auto* der = reinterpret_cast<const unsigned char*>(pfx.constData());
    Pkcs12Ptr p12(d2i_PKCS12(nullptr, &der, static_cast<long>(pfx.size())));
    EVP_PKEY* rawKey = nullptr;
    X509* rawCert = nullptr;
    STACK_OF(X509)* rawChain = nullptr;
    const QByteArray oldPass = oldPassword.toUtf8();
    if (!p12 || PKCS12_parse(p12.get(), oldPass.constData(), &rawKey, &rawCert, &rawChain) != 1) {
        ERR_clear_error();
        return std::nullopt;
    }
    PkeyPtr key(rawKey);
    X509Ptr cert(rawCert);
    CertStackPtr chain(rawChain);
    X509* ca = chain && sk_X509_num(chain.get()) > 0 ? sk_X509_value(chain.get(), 0) : nullptr;
    const char* alias = reinterpret_cast<const char*>(X509_alias_get0(cert.get(), nullptr));
    QByteArray packed = pack(key.get(), cert.get(), ca, QString::fromUtf8(alias), newPassword);
    ERR_clear_error();
    if (packed.isEmpty()) {
        return std::nullopt;
    }
    return packed;
}

AccountAuthority::PasswordHash AccountAuthority::hashPassword(const QString& password) {
    PasswordHash result;
    result.salt.resize(16);
    result.hash.resize(32);
    const QByteArray pass = password.toUtf8();
    if (RAND_bytes(reinterpret_cast<unsigned char*>(result.salt.data()),
                   static_cast<int>(result.salt.size())) != 1 ||
        PKCS5_PBKDF2_HMAC(pass.constData(), static_cast<int>(pass.size()),
                          reinterpret_cast<const unsigned char*>(result.salt.constData()),
                          static_cast<int>(result.salt.size()), result.iterations, EVP_sha256(),
                          static_cast<int>(result.hash.size()),
                          reinterpret_cast<unsigned char*>(result.hash.data())) != 1) {
        ERR_clear_error();
        return {};
    }
    return result;
}

bool AccountAuthority::verifyPassword(const QString& password, const PasswordHash& stored) {
    if (stored.hash.isEmpty() || stored.salt.isEmpty() || stored.iterations <= 0) {
        return false;
    }
    QByteArray candidate(stored.hash.size(), '\0');
    const QByteArray pass = password.toUtf8();
    if (PKCS5_PBKDF2_HMAC(pass.constData(), static_cast<int>(pass.size()),
                          reinterpret_cast<const unsigned char*>(stored.salt.constData()),
                          static_cast<int>(stored.salt.size()), stored.iterations, EVP_sha256(),
                          static_cast<int>(candidate.size()),
                          reinterpret_cast<unsigned char*>(candidate.data())) != 1) {
        ERR_clear_error();
        return false;
    }
    return CRYPTO_memcmp(candidate.constData(), stored.hash.constData(),
                         static_cast<size_t>(candidate.size())) == 0;
}
