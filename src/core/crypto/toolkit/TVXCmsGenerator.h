#pragma once

#include <functional>
#include <variant>
#include <vector>

#include "crypto/toolkit/TVXEnvelopeTransform.h"
#include "crypto/toolkit/TVXSignTransform.h"

class TVXCryptoProvider;
class TVXStream;

// Builds a CMS message by stacking layers, innermost first: sign(...).envelope(...) signs the
// content and envelopes the signed message. Encoding streams: the source is read in chunks and
// the message is written to the sink as it is produced.
class TVXCmsGenerator {
public:
    explicit TVXCmsGenerator(TVXCryptoProvider& provider) : m_provider(&provider) {}

    TVXCmsGenerator& sign(const std::function<void(TVXSignTransform&)>& configure);
    TVXCmsGenerator& envelope(const std::function<void(TVXEnvelopeTransform&)>& configure);

    // Throws a TVXException on any failure; the sink may then hold a partial message.
    void encodeFromSource(TVXStream& source, TVXStream& sink);

private:
    TVXCryptoProvider* m_provider;
    std::vector<std::variant<TVXSignTransform, TVXEnvelopeTransform>> m_layers;
};
