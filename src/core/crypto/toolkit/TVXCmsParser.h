#pragma once

#include <QString>

#include "crypto/toolkit/TVXCmsParseResult.h"

class TVXCmsParserCallback;
class TVXStream;

// Opens a protected message: enveloped layers with the callback's keys, signed layers checked with
// every signature, the content written to the callback's decoded stream. The outermost layer must
// be an enveloped one. The source is read once, front to back, and memory stays small whatever
// its size: only recipient entries, algorithms, certificates and signer entries are kept (each
// bounded, see BerReader), while the content streams through decryption and digests.
class TVXCmsParser {
public:
    // The refusals of data that is no protected message, for those who look before opening.
    [[nodiscard]] static QString notCmsMessage();
    [[nodiscard]] static QString notEncryptedMessage(const QString& outerLayer);

    // Reports every failure through the result and never throws for a bad message. The decoded
    // stream may hold content even when the result reports a failure; only a result without
    // failure and with all signatures valid vouches for it.
    [[nodiscard]] TVXCmsParseResult parseEncodedStream(TVXStream& source,
                                                       TVXCmsParserCallback& callback);
};
