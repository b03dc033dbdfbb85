#pragma once

#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"

// One recipient of an enveloped layer.
class TVXCmsEncryptedFor {
public:
    explicit TVXCmsEncryptedFor(comTruvexCryptoBusinessLogic_CryptoParticipant cryptoParticipant)
        : m_participant(std::move(cryptoParticipant)) {}

    [[nodiscard]] const comTruvexCryptoBusinessLogic_CryptoParticipant& participant() const noexcept {
        return m_participant;
    }

private:
    comTruvexCryptoBusinessLogic_CryptoParticipant m_participant;
};
