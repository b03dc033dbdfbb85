#pragma once

#include <QByteArray>

struct bio_st;

// A source or sink of bytes for the CMS generator and parser. Every stream is closed with close()
// when its operation is done, whether it succeeded or not; closing twice is harmless.
class TVXStream {
public:
    TVXStream() = default;
    virtual ~TVXStream() = default;
    TVXStream(const TVXStream&) = delete;
    TVXStream& operator=(const TVXStream&) = delete;

    virtual void close() = 0;

    // For the crypto layer: an OpenSSL BIO reading or writing this stream, borrowed, valid until
    // close(). Throws when the stream is closed or cannot be opened.
    [[nodiscard]] virtual bio_st* bio() = 0;
    // For the crypto layer: everything the stream can still deliver, in one buffer.
    [[nodiscard]] virtual QByteArray readAll() = 0;
};
