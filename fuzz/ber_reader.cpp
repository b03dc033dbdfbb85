// Any bytes walked with the streaming BER reader the way the message parser walks a protected
// file: into constructed elements, keeping small ones, skipping large ones and streaming OCTET
// STRINGs. Faults of the encoding must come back as BerReader::Error, never as a crash, a hang or
// a kept element beyond its limit.
#include <array>

#include "FuzzSupport.h"
#include "crypto/cms/BerReader.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Elements up to this size are kept (as the parser keeps algorithm identifiers and recipient
// entries); a small limit lets the fuzzer reach the refusal of larger ones cheaply.
constexpr qint64 kKeepLimit = 4096;

void walk(BerReader& reader, qint64 sourceSize) {
    while (const std::optional<BerReader::Header> header = reader.next()) {
        FUZZ_CHECK(reader.position() <= sourceSize, u"the reader went past its source"_s);
        if (header->isUniversal(BerReader::kTagOctetString) ||
            header->is(BerReader::kContext, 0)) {
            reader.beginOctets(*header);
            std::array<char, 512> piece{};
            qint64 total = 0;
            while (const qint64 read = reader.readOctets(piece.data(), piece.size())) {
                FUZZ_CHECK(read > 0 && read <= qint64{piece.size()},
                           u"a read gave an impossible count"_s);
                total += read;
            }
            FUZZ_CHECK(total <= sourceSize, u"a string held more than its source"_s);
        } else if (header->constructed && header->tag % 2 == 0) {
            reader.enter(*header);
            walk(reader, sourceSize);
            reader.leave();
        } else if (!header->indefinite && header->length <= kKeepLimit) {
            const QByteArray kept = reader.capture(*header, kKeepLimit + 16);
            FUZZ_CHECK(kept.size() == header->raw.size() + header->length,
                       u"a kept element has the wrong size"_s);
        } else {
            reader.skip(*header);
        }
        FUZZ_CHECK(reader.depth() <= BerReader::kMaxDepth, u"nesting beyond the limit"_s);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    BerMemorySource source(FuzzSupport::bytesOf(data, size));
    BerReader reader(source);
    try {
        walk(reader, static_cast<qint64>(size));
    } catch (const BerReader::Error& error) {
        FUZZ_CHECK(!error.message().isEmpty(), u"a fault without a description"_s);
    }
    return 0;
}
