#pragma once

#include <exception>

#include "crypto/cms/BerReader.h"
#include "crypto/cms/OpenSsl.h"

// A BerSource reading a BIO, such as the plain end of OpenSSL's decryption. Faults raised further
// down the chain (inside a BerOctetsBio) were parked in `pending` and are raised again here, those
// of the encoding as CarrierError, as is a BIO that fails. Private to the crypto folder.
class BioBerSource final : public BerSource {
public:
    // A fault of the layer that carries the one being read (the ciphertext around decrypted
    // content): it damages the message as a whole, whatever the inner reader made of it so far.
    class CarrierError final : public BerReader::Error {
    public:
        using BerReader::Error::Error;
    };

    BioBerSource(BIO* bio, std::exception_ptr& pending) : m_bio(bio), m_pending(pending) {}

    qint64 read(char* data, qint64 size) override;

private:
    BIO* m_bio;
    std::exception_ptr& m_pending;
};
