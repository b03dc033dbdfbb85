#pragma once

#include <QList>
#include <QString>
#include <functional>

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/comTruvexCryptoBusinessLogic_CryptoParticipant.h"

class TVXCmsParseResult;

// Judges the signatures of a signed layer once its content has streamed through the digest BIOs:
// each signature must match its certificate (trust in the certificate is decided elsewhere:
// contacts, account checks) and the content. Private to the crypto folder.
class CmsSignatureCheck {
public:
    // The signers the caller expects, asked for once the layer is known to have signers; their
    // certificates help find signers whose certificate is not in the message.
    using Offered = std::function<QList<comTruvexCryptoBusinessLogic_CryptoParticipant>()>;

    // `cms` is the signed layer without its content, `digests` the BIOs its content went through.
    // Records the verdict in `result`, and the certificates that travel in the message and name a
    // signer, with their signing times. Empty when done, else why the signatures cannot be checked
    // (nothing recorded then).
    [[nodiscard]] static QString check(CMS_ContentInfo* cms, BIO* digests, const Offered& offered,
                                       TVXCmsParseResult& result);
};
