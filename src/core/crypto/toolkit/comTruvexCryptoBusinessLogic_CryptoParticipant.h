#pragma once

#include <QString>
#include <memory>

#include "crypto/toolkit/TVXX509Certificate.h"

class TVXCryptoProvider;
class TVXStream;
struct evp_pkey_st;

// One party to a CMS message: a certificate alone (a recipient), or a certificate with its private
// key (a signer, or the user opening a message). Copies share the same key material.
class comTruvexCryptoBusinessLogic_CryptoParticipant {
public:
    // A certificate-only participant from a DER certificate. Throws a TVXException.
    [[nodiscard]] static comTruvexCryptoBusinessLogic_CryptoParticipant initWithX509Cert(
        TVXStream& certificate, TVXCryptoProvider& keyExtractionCryptoProvider);
    // A participant with private key from PKCS#12 bytes. Throws a TVXException.
    [[nodiscard]] static comTruvexCryptoBusinessLogic_CryptoParticipant initWithPfx(
        TVXStream& pfx, const QString& pfxPassword, TVXCryptoProvider& keyExtractionCryptoProvider);
    // The same; the name used when opening messages.
    [[nodiscard]] static comTruvexCryptoBusinessLogic_CryptoParticipant participantPfx(
        TVXStream& pfx, const QString& pfxPassword, TVXCryptoProvider& keyExtractionCryptoProvider);

    [[nodiscard]] const TVXX509Certificate& certificate() const noexcept { return m_certificate; }
    [[nodiscard]] bool hasPrivateKey() const noexcept { return m_key != nullptr; }
    // For the crypto layer: borrowed; null for a certificate-only participant.
    [[nodiscard]] evp_pkey_st* privateKey() const noexcept { return m_key.get(); }

private:
    comTruvexCryptoBusinessLogic_CryptoParticipant(TVXX509Certificate certificate,
                                                   std::shared_ptr<evp_pkey_st> key)
        : m_certificate(std::move(certificate)), m_key(std::move(key)) {}

    TVXX509Certificate m_certificate;
    std::shared_ptr<evp_pkey_st> m_key;
};
