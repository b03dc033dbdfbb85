#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"

#include <openssl/rand.h>

#include <QCryptographicHash>
#include <atomic>
#include <deque>
#include <mutex>

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/TVXStream.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kNotPkcs12 = u"The data is not a PKCS#12 key file"_s;
const QString kWrongPassword = u"The password does not open the key file"_s;
const QString kCannotOpen = u"Cannot open the key file"_s;
const QString kIncomplete = u"The key file holds no private key or no certificate"_s;
const QString kNothingLoaded = u"No key file has been loaded"_s;
const QString kTooManyRounds = u"The key file asks for too many password rounds to be opened"_s;

enum class Outcome { Loaded, NeedsLegacy };

// Key files kept at once: the user's own, and room for a change of account within a run.
constexpr size_t kMaxKeptKeyFiles = 4;
constexpr int kSaltSize = 32;

// Opening a key file runs one password-based key derivation for its MAC, one per encrypted part
// and one per protected private key, each as many rounds as the file itself declares. Real files
// declare a few thousand to a few hundred thousand per derivation (ours: 100,000); a file from
// outside (a server answer, an imported profile) could declare billions and hold the program for
// hours. So the rounds of a whole file are added up before any derivation and capped here, about
// two seconds of work on a current machine.
constexpr quint64 kMaxPasswordRounds = 8'000'000;
// Bags may hold bags; real files do not nest at all.
constexpr int kMaxBagNesting = 8;

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

// Adds up the password rounds of a key file; over the cap at the first algorithm whose cost cannot
// be bounded (a memory-hard derivation, whose cost the file sets in three numbers).
class PasswordRounds {
public:
    [[nodiscard]] bool withinLimit() const noexcept { return m_withinLimit; }

    void add(quint64 rounds) {
        m_total += rounds;
        m_withinLimit = m_withinLimit && m_total <= kMaxPasswordRounds;
    }

    void addMac(const PKCS12* pfx) {
        const ASN1_INTEGER* iterations = nullptr;
        PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, pfx);
        if (PKCS12_mac_present(pfx) == 1) {
            add(iterations == nullptr ? 1 : roundsOf(iterations));
        }
    }

    // Every encrypted part and every protected key; an encrypted part is opened with `password`
    // to see the bags inside it (its own rounds are counted first).
    void addContents(const PKCS12* pfx, const QByteArray& password) {
        STACK_OF(PKCS7)* parts = PKCS12_unpack_authsafes(pfx);
        if (parts == nullptr) {
            ERR_clear_error();  // unreadable: opening it fails on its own, before any derivation
            return;
        }
        for (int i = 0; i < sk_PKCS7_num(parts) && m_withinLimit; ++i) {
            PKCS7* part = sk_PKCS7_value(parts, i);
            STACK_OF(PKCS12_SAFEBAG)* bags = nullptr;
            if (PKCS7_type_is_data(part)) {
                bags = PKCS12_unpack_p7data(part);
            } else if (PKCS7_type_is_encrypted(part) && part->d.encrypted != nullptr &&
                       part->d.encrypted->enc_data != nullptr) {
                addAlgorithm(part->d.encrypted->enc_data->algorithm);
                if (m_withinLimit) {
                    const char* pass = password.isNull() ? nullptr : password.constData();
                    bags = PKCS12_unpack_p7encdata(part, pass, static_cast<int>(password.size()));
                }
            }
            if (bags != nullptr) {
                addBags(bags, 0);
                sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
            }
        }
        sk_PKCS7_pop_free(parts, PKCS7_free);
        ERR_clear_error();
    }

private:
    static quint64 roundsOf(const ASN1_INTEGER* iterations) {
        uint64_t rounds = 0;
        // A negative or unreadable count makes OpenSSL refuse the derivation without running it.
        return ASN1_INTEGER_get_uint64(&rounds, iterations) == 1 ? rounds : 0;
    }

    template <class Params>
    static quint64 roundsIn(const ASN1_ITEM* item, const ASN1_TYPE* parameter) {
        auto* params = static_cast<Params*>(ASN1_TYPE_unpack_sequence(item, parameter));
        if (params == nullptr) {
            return 0;  // unreadable parameters: OpenSSL refuses them the same way
        }
        const quint64 rounds = roundsOf(params->iter);
        ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(params), item);
        return rounds;
    }

    void addAlgorithm(const X509_ALGOR* algorithm) {
        const ASN1_OBJECT* oid = nullptr;
        const void* value = nullptr;
        X509_ALGOR_get0(&oid, nullptr, &value, algorithm);
        const int nid = OBJ_obj2nid(oid);
        if (nid == NID_pbes2) {
            auto* pbes2 = static_cast<PBE2PARAM*>(
                ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBE2PARAM), algorithm->parameter));
            if (pbes2 == nullptr) {
                return;
            }
            const X509_ALGOR* derivation = pbes2->keyfunc;
            if (OBJ_obj2nid(derivation->algorithm) == NID_id_pbkdf2) {
                add(roundsIn<PBKDF2PARAM>(ASN1_ITEM_rptr(PBKDF2PARAM), derivation->parameter));
            } else {
                m_withinLimit = false;
            }
            PBE2PARAM_free(pbes2);
        } else if (EVP_PBE_find(EVP_PBE_TYPE_OUTER, nid, nullptr, nullptr, nullptr) == 1) {
            add(roundsIn<PBEPARAM>(ASN1_ITEM_rptr(PBEPARAM), algorithm->parameter));
        }
    }

    void addBags(const STACK_OF(PKCS12_SAFEBAG)* bags, int depth) {
        for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags) && m_withinLimit; ++i) {
            const PKCS12_SAFEBAG* bag = sk_PKCS12_SAFEBAG_value(bags, i);
            switch (PKCS12_SAFEBAG_get_nid(bag)) {
            case NID_pkcs8ShroudedKeyBag: {
                const X509_ALGOR* algorithm = nullptr;
                X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
                addAlgorithm(algorithm);
                break;
            }
            case NID_safeContentsBag:
                if (depth >= kMaxBagNesting) {
                    m_withinLimit = false;
                } else {
                    addBags(PKCS12_SAFEBAG_get0_safes(bag), depth + 1);
                }
                break;
            default:
                break;
            }
        }
    }

    quint64 m_total = 0;
    bool m_withinLimit = true;
};

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
    PasswordRounds rounds;
    rounds.addMac(pfx);
    if (!rounds.withinLimit()) {
        nivossl::fail(TVXCryptoOperationException, kTooManyRounds);
    }
    bool unsupported = false;
    const std::optional<QByteArray> opening = passwordThatOpensMac(pfx, password, unsupported);
    if (!opening) {
        if (unsupported) {
            return Outcome::NeedsLegacy;
        }
        nivossl::fail(TVXWrongPasswordException, kWrongPassword);
    }
    rounds.addContents(pfx, *opening);
    if (!rounds.withinLimit()) {
        nivossl::fail(TVXCryptoOperationException, kTooManyRounds);
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
