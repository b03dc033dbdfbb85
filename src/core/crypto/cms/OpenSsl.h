#pragma once

// Private to the crypto folder: OpenSSL ownership types and error handling. Nothing outside
// src/core/crypto includes this header, so OpenSSL stays out of the public interface.

#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <memory>
#include <source_location>

class QIODevice;

namespace nivossl {

// The deleter names the function that releases what we own: objects we created, and everything
// handed to us by a get1/new/d2i call. get0 results are borrowed and never wrapped.
template <auto FreeFn>
struct Free {
    template <class T>
    void operator()(T* p) const noexcept {
        FreeFn(p);
    }
};

inline void opensslFree(void* p) noexcept { OPENSSL_free(p); }
inline void freeCertStack(STACK_OF(X509)* s) noexcept { sk_X509_pop_free(s, X509_free); }
// A stack whose certificates are borrowed: only the stack itself is ours.
inline void freeBorrowedCertStack(STACK_OF(X509)* s) noexcept { sk_X509_free(s); }

using BioPtr = std::unique_ptr<BIO, Free<BIO_free_all>>;
using X509Ptr = std::unique_ptr<X509, Free<X509_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using CmsPtr = std::unique_ptr<CMS_ContentInfo, Free<CMS_ContentInfo_free>>;
using Pkcs12Ptr = std::unique_ptr<PKCS12, Free<PKCS12_free>>;
using StorePtr = std::unique_ptr<X509_STORE, Free<X509_STORE_free>>;
using StoreCtxPtr = std::unique_ptr<X509_STORE_CTX, Free<X509_STORE_CTX_free>>;
using CertStackPtr = std::unique_ptr<STACK_OF(X509), Free<freeCertStack>>;
using BorrowedCertStackPtr = std::unique_ptr<STACK_OF(X509), Free<freeBorrowedCertStack>>;
using BioMethodPtr = std::unique_ptr<BIO_METHOD, Free<BIO_meth_free>>;

// Shared, reference-counted handles for the value types of the public interface.
[[nodiscard]] std::shared_ptr<X509> shareCert(X509Ptr cert);
[[nodiscard]] std::shared_ptr<EVP_PKEY> shareKey(PkeyPtr key);
// Takes an extra reference (get1) on a certificate we only borrow.
[[nodiscard]] X509Ptr upRef(X509* cert);

// Everything OpenSSL queued since the last drain, oldest first. Draining empties the queue.
class Errors {
public:
    [[nodiscard]] static Errors drain();

    [[nodiscard]] bool isEmpty() const noexcept { return m_codes.isEmpty(); }
    [[nodiscard]] bool has(int library, int reason) const noexcept;
    // True when any entry's reason reads "unsupported" in some form.
    [[nodiscard]] bool mentionsUnsupported() const;
    [[nodiscard]] const QString& text() const noexcept { return m_text; }

private:
    QList<unsigned long> m_codes;
    QString m_text;
};

// Throws a TVXException whose description is `what` followed by the drained error queue.
[[noreturn]] void fail(const QString& exceptionName, const QString& what,
                       std::source_location where = std::source_location::current());

// The same with errors already drained.
[[noreturn]] void fail(const QString& exceptionName, const QString& what, const Errors& errors,
                       std::source_location where = std::source_location::current());

// Bytes of a memory BIO, copied.
[[nodiscard]] QByteArray memBioBytes(BIO* bio);
// A BIO reading and writing `device`, which must stay open while the BIO lives.
[[nodiscard]] BioPtr deviceBio(QIODevice* device);
// A source/sink BIO method of our own with the given callbacks (any may be null); the BIOs it makes
// are ready for use at once, their data set with BIO_set_data. Null when OpenSSL refuses.
[[nodiscard]] BioMethodPtr sourceSinkMethod(const char* name, int (*read)(BIO*, char*, int),
                                            int (*write)(BIO*, const char*, int),
                                            long (*ctrl)(BIO*, int, long, void*));
// A read-only memory BIO over `bytes`, which must outlive it.
[[nodiscard]] BioPtr readOnlyBio(const QByteArray& bytes);
// A UTCTime or GeneralizedTime as a UTC date and time; null when it cannot be read.
[[nodiscard]] QDateTime dateTimeOf(const ASN1_TIME* time);

}  // namespace nivossl
