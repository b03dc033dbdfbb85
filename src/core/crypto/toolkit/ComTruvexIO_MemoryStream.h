#pragma once

#include <QByteArray>
#include <memory>

#include "crypto/toolkit/TVXStream.h"

// An in-memory stream: either readable over a given buffer, or an empty writable sink.
class ComTruvexIO_MemoryStream final : public TVXStream {
public:
    // An empty writable stream.
    ComTruvexIO_MemoryStream();
    // A readable stream over `data` (shared, never modified).
    explicit ComTruvexIO_MemoryStream(const QByteArray& data);
    ~ComTruvexIO_MemoryStream() override;

    [[nodiscard]] static std::unique_ptr<ComTruvexIO_MemoryStream> streamFromData(
        const QByteArray& data);

    // All bytes written so far, from the start (or, for a readable stream, its data).
    [[nodiscard]] QByteArray readDataFromStartToEnd() const;

    void close() override;
    [[nodiscard]] bio_st* bio() override;
    [[nodiscard]] QByteArray readAll() override;

private:
    QByteArray m_data;  // the source, or what has been written so far
    bool m_writable = false;
    bool m_closed = false;
    struct Bio;
    std::unique_ptr<Bio> m_bio;
};
