#pragma once

#include <QString>
#include <QtGlobal>
#include <memory>
#include <optional>

#include "crypto/toolkit/TVXX509Certificate.h"

class TVXCryptoProvider;
class TVXStream;
struct evp_pkey_st;

// Opens a PKCS#12 (PFX) key file: its private key and the certificate that goes with it.
class comTruvexCrypto_Pkcs12Loader {
public:
    [[nodiscard]] static comTruvexCrypto_Pkcs12Loader loaderCryptoProvider(
        TVXCryptoProvider& provider);

    // Throws a TVXException when the data is not PKCS#12, when the password is wrong (named
    // TVXWrongPasswordException) or when the file needs algorithms that are not installed.
    //
    // Opening a key file derives its keys from the password, which is slow on purpose; a batch
    // would repeat it for every file. So what was opened is kept for the process, keyed by a
    // salted hash of the file's bytes and the password (neither is kept), and the same file with
    // the same password is not derived again. Failures are never kept: a wrong password fails
    // every time. Safe to call from any thread.
    void loadFromStream(TVXStream& stream, const QString& password);

    // Drops every kept key file; sign-out calls it.
    static void forgetOpenedKeyFiles();
    // How many times a key file was really opened (not taken from what was kept).
    [[nodiscard]] static quint64 keyDerivations();

    // The certificate of the loaded file; throws before a successful load.
    [[nodiscard]] TVXX509Certificate x509Certificate() const;
    // For the crypto layer: the private key of the loaded file.
    [[nodiscard]] std::shared_ptr<evp_pkey_st> privateKey() const;

private:
    explicit comTruvexCrypto_Pkcs12Loader(TVXCryptoProvider& provider) : m_provider(&provider) {}

    TVXCryptoProvider* m_provider;
    std::optional<TVXX509Certificate> m_certificate;
    std::shared_ptr<evp_pkey_st> m_key;
};
