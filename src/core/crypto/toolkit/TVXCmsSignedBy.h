#pragma once

#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"

// One signer of a signed layer: a participant with private key and a signature algorithm code.
class TVXCmsSignedBy {
public:
    TVXCmsSignedBy(int signatureAlgorithm,
                   comTruvexCryptoBusinessLogic_CryptoParticipant cryptoParticipant)
        : m_signatureAlgorithm(signatureAlgorithm), m_participant(std::move(cryptoParticipant)) {}

    [[nodiscard]] int signatureAlgorithm() const noexcept { return m_signatureAlgorithm; }
    [[nodiscard]] const comTruvexCryptoBusinessLogic_CryptoParticipant& participant() const noexcept {
        return m_participant;
    }

private:
    int m_signatureAlgorithm;
    comTruvexCryptoBusinessLogic_CryptoParticipant m_participant;
};
