#pragma once

#include <optional>

#include "crypto/toolkit/TVXX509Certificate.h"

class TVXCryptoProvider;
class TVXStream;

// Reads one DER certificate from a stream.
class comTruvexCrypto_X509CertificateLoader {
public:
    [[nodiscard]] static comTruvexCrypto_X509CertificateLoader loaderCryptoProvider(
        TVXCryptoProvider& provider);

    // Throws a TVXException when the stream does not hold a DER certificate.
    void loadFromStream(TVXStream& stream);
    // The loaded certificate; throws before a successful load.
    [[nodiscard]] TVXX509Certificate x509Certificate() const;

private:
    explicit comTruvexCrypto_X509CertificateLoader(TVXCryptoProvider& provider)
        : m_provider(&provider) {}

    // The provider the loader was made with; reading DER needs none of its services so far.
    [[maybe_unused]] TVXCryptoProvider* m_provider;
    std::optional<TVXX509Certificate> m_certificate;
};
