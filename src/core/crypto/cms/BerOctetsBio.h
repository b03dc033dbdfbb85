#pragma once

#include <exception>
#include <functional>

#include "crypto/cms/OpenSsl.h"

class BerReader;

// A source BIO delivering the contents of an OCTET STRING from a BerReader, so that OpenSSL
// decrypts or digests them as they stream past. OpenSSL's C code calls it, so faults are parked
// in `pending` instead of thrown, for a BioBerSource further up the chain to raise again. The BIO
// reads through this object, which must outlive it. Private to the crypto folder.
class BerOctetsBio {
public:
    BerOctetsBio(BerReader& reader, std::exception_ptr& pending)
        : m_reader(reader), m_pending(pending) {}
    BerOctetsBio(const BerOctetsBio&) = delete;
    BerOctetsBio& operator=(const BerOctetsBio&) = delete;

    // A new BIO reading the string the reader is in; null when OpenSSL cannot make one, its
    // reasons queued.
    [[nodiscard]] nivossl::BioPtr bio();
    // Runs once, when the string has been read.
    void setAtEnd(std::function<void()> atEnd) { m_atEnd = std::move(atEnd); }
    [[nodiscard]] bool ended() const noexcept { return m_ended; }

private:
    static int read(BIO* bio, char* data, int size);
    static long control(BIO* bio, int command, long number, void* pointer);

    BerReader& m_reader;
    std::exception_ptr& m_pending;
    std::function<void()> m_atEnd;
    bool m_ended = false;
};
