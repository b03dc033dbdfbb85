#include "crypto/cms/BerOctetsBio.h"

#include "crypto/cms/BerReader.h"

nivossl::BioPtr BerOctetsBio::bio() {
    static const nivossl::BioMethodPtr method =
        nivossl::sourceSinkMethod("BER octets", read, nullptr, control);
    nivossl::BioPtr bio(method ? BIO_new(method.get()) : nullptr);
    if (bio) {
        BIO_set_data(bio.get(), this);
    }
    return bio;
}

int BerOctetsBio::read(BIO* bio, char* data, int size) {
    auto* feed = static_cast<BerOctetsBio*>(BIO_get_data(bio));
    if (feed->m_ended) {
        return 0;
    }
    try {
        const qint64 read = feed->m_reader.readOctets(data, size);
        if (read == 0) {
            feed->m_ended = true;
            if (feed->m_atEnd) {
                feed->m_atEnd();
            }
        }
        return static_cast<int>(read);
    } catch (...) {
        feed->m_pending = std::current_exception();
        return -1;
    }
}

long BerOctetsBio::control(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    const auto* feed = static_cast<const BerOctetsBio*>(BIO_get_data(bio));
    switch (command) {
        case BIO_CTRL_EOF:
            return feed->m_ended ? 1 : 0;
        case BIO_CTRL_FLUSH:
            return 1;
        default:
            return 0;
    }
}
