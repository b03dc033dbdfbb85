#include "crypto/comTruvexCrypto_Pkcs12Loader.h"

#include <openssl/rand.h>

#include <QCryptographicHash>
#include <atomic>
#include <deque>
#include <mutex>

#include "crypto/OpenSsl.h"
#include "crypto/TVXCryptoProvider.h"
#include "crypto/TVXStream.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kNotPkcs12 = u"The data is not a PKCS#12 key file"_s;
const QString kWrongPassword = u"The password does not open the key file"_s;
const QString kCannotOpen = u"Cannot open the key file"_s;
const QString kIncomplete = u"The key file holds no private key or no certificate"_s;
const QString kNothingLoaded = u"No key file has been loaded"_s;

enum class Outcome { Loaded, NeedsLegacy };

// Key files kept at once: the user's own, and room for a change of account within a run.
constexpr size_t kMaxKeptKeyFiles = 4;
constexpr int kSaltSize = 32;

struct KeptKeyFile {
    QByteArray fingerprint;
    TVXX509Certificate certificate;
    std::shared_ptr<evp_pkey_st> key;
};

struct KeyFileMemory {
    std::mutex mutex;
    QByteArray salt;  // per process, so that a fingerprint is no password check elsewhere
    std::deque<KeptKeyFile> files;  // most recently opened first
    std::atomic<quint64> derivations{0};
};

KeyFileMemory& keyFileMemory() {
    static KeyFileMemory memory;
    return memory;
}

// Salted SHA-256 of the file's bytes and the password; lengths keep the two apart.
QByteArray fingerprintOf(const QByteArray& der, const QByteArray& password) {
    KeyFileMemory& memory = keyFileMemory();
    QByteArray salt;
    {
        const std::lock_guard lock(memory.mutex);
        if (memory.salt.isEmpty()) {
            memory.salt.resize(kSaltSize);
            if (RAND_bytes(reinterpret_cast<unsigned char*>(memory.salt.data()), kSaltSize) != 1) {
                memory.salt.clear();
                ERR_clear_error();
                return {};
            }
        }
        salt = memory.salt;
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(salt);
    hash.addData(QByteArray::number(der.size()) + ':');
    hash.addData(der);
    hash.addData(password);
    return hash.result();
}

struct Contents {
    nivossl::PkeyPtr key;
    nivossl::X509Ptr certificate;
};

// An empty password may have been applied as "no password" or as the empty string; PKCS#12
// writers differ, so both are tried, as OpenSSL's own tools do.
std::optional<QByteArray> passwordThatOpensMac(PKCS12* pfx, const QByteArray& password,
                                               bool& unsupported) {
    if (PKCS12_mac_present(pfx) == 0) {
        return password;
    }
    const auto verify = [&](const char* candidate, int length) {
        if (PKCS12_verify_mac(pfx, candidate, length) == 1) {
            return true;
        }
        const nivossl::Errors errors = nivossl::Errors::drain();
        unsupported = unsupported || errors.mentionsUnsupported();
        return false;
    };
    if (password.isEmpty()) {
        if (verify(nullptr, 0)) {
            return QByteArray();
        }
        if (verify("", 0)) {
            return QByteArray("");
        }
        return std::nullopt;
    }
    if (verify(password.constData(), static_cast<int>(password.size()))) {
        return password;
    }
    return std::nullopt;
}

Outcome parse(PKCS12* pfx, const QByteArray& password, Contents& contents) {
    bool unsupported = false;
    const std::optional<QByteArray> opening = passwordThatOpensMac(pfx, password, unsupported);
    if (!opening) {
        if (unsupported) {
            return Outcome::NeedsLegacy;
        }
        nivossl::fail(TVXWrongPasswordException, kWrongPassword);
    }
    EVP_PKEY* key = nullptr;
    X509* certificate = nullptr;
    STACK_OF(X509)* chain = nullptr;
    const char* pass = opening->isNull() ? nullptr : opening->constData();
    if (PKCS12_parse(pfx, pass, &key, &certificate, &chain) != 1) {
        const nivossl::Errors errors = nivossl::Errors::drain();
        if (errors.mentionsUnsupported()) {
            return Outcome::NeedsLegacy;
        }
        nivossl::fail(TVXCryptoOperationException, kCannotOpen, errors);
    }
    contents.key.reset(key);
    contents.certificate.reset(certificate);
    const nivossl::CertStackPtr ownedChain(chain);
    return Outcome::Loaded;
}

}  // namespace

comTruvexCrypto_Pkcs12Loader comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(
    TVXCryptoProvider& provider) {
    return comTruvexCrypto_Pkcs12Loader(provider);
}

void comTruvexCrypto_Pkcs12Loader::loadFromStream(TVXStream& stream, const QString& password) {
    ERR_clear_error();
    const QByteArray der = stream.readAll();
    const auto* in = reinterpret_cast<const unsigned char*>(der.constData());
    const nivossl::Pkcs12Ptr pfx(d2i_PKCS12(nullptr, &in, der.size()));
    if (!pfx) {
        nivossl::fail(TVXCryptoOperationException, kNotPkcs12);
    }
    const QByteArray utf8Password = password.toUtf8();
    const QByteArray fingerprint = fingerprintOf(der, utf8Password);
    KeyFileMemory& memory = keyFileMemory();
    if (!fingerprint.isEmpty()) {
        const std::lock_guard lock(memory.mutex);
        for (const KeptKeyFile& kept : memory.files) {
            if (kept.fingerprint == fingerprint) {
                m_key = kept.key;
                m_certificate = kept.certificate;
                return;
            }
        }
    }
    ++memory.derivations;
    Contents contents;
    if (parse(pfx.get(), utf8Password, contents) == Outcome::NeedsLegacy) {
        // Older exports protect their contents with RC2, RC4 or DES, which OpenSSL only offers
        // through its legacy provider; it is loaded on first need and kept.
        m_provider->loadLegacyAlgorithms();
        if (parse(pfx.get(), utf8Password, contents) == Outcome::NeedsLegacy) {
            nivossl::fail(TVXNotSupportedException, kCannotOpen);
        }
    }
    if (!contents.key || !contents.certificate) {
        nivossl::fail(TVXCryptoOperationException, kIncomplete);
    }
    m_key = nivossl::shareKey(std::move(contents.key));
    m_certificate = TVXX509Certificate(nivossl::shareCert(std::move(contents.certificate)));
    if (!fingerprint.isEmpty()) {
        const std::lock_guard lock(memory.mutex);
        memory.files.push_front(KeptKeyFile{fingerprint, *m_certificate, m_key});
        if (memory.files.size() > kMaxKeptKeyFiles) {
            memory.files.pop_back();
        }
    }
}

void comTruvexCrypto_Pkcs12Loader::forgetOpenedKeyFiles() {
    KeyFileMemory& memory = keyFileMemory();
    const std::lock_guard lock(memory.mutex);
    memory.files.clear();
}

quint64 comTruvexCrypto_Pkcs12Loader::keyDerivations() {
    return keyFileMemory().derivations.load();
}

TVXX509Certificate comTruvexCrypto_Pkcs12Loader::x509Certificate() const {
    if (!m_certificate) {
        nivossl::fail(TVXCryptoOperationException, kNothingLoaded);
    }
    return *m_certificate;
}

std::shared_ptr<evp_pkey_st> comTruvexCrypto_Pkcs12Loader::privateKey() const {
    if (!m_key) {
        nivossl::fail(TVXCryptoOperationException, kNothingLoaded);
    }
    return m_key;
}
