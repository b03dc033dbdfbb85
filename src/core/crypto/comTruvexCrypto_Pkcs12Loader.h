#pragma once

#include <QString>
#include <memory>
#include <optional>

#include "crypto/TVXX509Certificate.h"

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
    void loadFromStream(TVXStream& stream, const QString& password);

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
