#include "crypto/cms/BioBerSource.h"

#include <algorithm>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace {

// BIO_read takes an int; the decoded content passes in pieces of this size.
constexpr qint64 kMaxRead = 64 * 1024;

}  // namespace

qint64 BioBerSource::read(char* data, qint64 size) {
    const int wanted = static_cast<int>(std::min(size, kMaxRead));
    const int read = BIO_read(m_bio, data, wanted);
    if (read > 0) {
        return read;
    }
    if (m_pending) {
        try {
            std::rethrow_exception(std::exchange(m_pending, nullptr));
        } catch (const BerReader::Error& error) {
            throw CarrierError(error.message());
        }
    }
    if (read < 0 && BIO_ctrl(m_bio, BIO_CTRL_EOF, 0, nullptr) != 1) {
        throw CarrierError(u"the data cannot be read"_s);
    }
    return 0;
}
