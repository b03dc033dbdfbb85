#pragma once

#include <QList>

#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"

class TVXStream;

// What the parser asks for while it opens a message: keys for enveloped layers, participants for
// signed layers, where the content goes, and detached parts. The encoding level (nesting depth)
// is passed along but not needed here. Detached ciphertext and compressed layers are refused.
class TVXCmsParserCallback {
public:
    // Not to be used: a callback without keys and sink is useless. Always throws.
    TVXCmsParserCallback();
    // The streams are borrowed and must outlive the parse.
    TVXCmsParserCallback(QList<comTruvexCryptoBusinessLogic_CryptoParticipant> recipients,
                         QList<comTruvexCryptoBusinessLogic_CryptoParticipant> signers,
                         TVXStream* decoded, TVXStream* plainText);
    virtual ~TVXCmsParserCallback() = default;
    TVXCmsParserCallback(const TVXCmsParserCallback&) = delete;
    TVXCmsParserCallback& operator=(const TVXCmsParserCallback&) = delete;

    [[nodiscard]] virtual QList<comTruvexCryptoBusinessLogic_CryptoParticipant>
    getRecipientForEncodingLevel(int encodingLevel) const;
    [[nodiscard]] virtual QList<comTruvexCryptoBusinessLogic_CryptoParticipant>
    getSignerForEncodingLevel(int encodingLevel) const;
    [[nodiscard]] virtual TVXStream* getDecoded() const;
    [[nodiscard]] virtual TVXStream* getDetachedPlaintextForEncodingLevel(int encodingLevel) const;
    // Both throw a TVXException named TVXStreamOperationException.
    [[nodiscard]] virtual TVXStream* getDetachedCiphertextForEncodingLevel(int encodingLevel) const;
    [[nodiscard]] virtual TVXStream* getDetachedCompressedDataForEncodingLevel(
        int encodingLevel) const;

private:
    QList<comTruvexCryptoBusinessLogic_CryptoParticipant> m_recipients;
    QList<comTruvexCryptoBusinessLogic_CryptoParticipant> m_signers;
    TVXStream* m_decoded = nullptr;
    TVXStream* m_plainText = nullptr;
};
