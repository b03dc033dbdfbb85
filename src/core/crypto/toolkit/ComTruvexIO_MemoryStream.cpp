#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"

#include <QBuffer>

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {
const QString kClosed = u"The memory stream is closed"_s;
const QString kNoBuffer = u"Cannot create a memory buffer"_s;
}  // namespace

struct ComTruvexIO_MemoryStream::Bio {
    // A sink writes into the stream's byte array through a buffer device, so that what was
    // written is handed out without a copy.
    std::unique_ptr<QBuffer> buffer;
    nivossl::BioPtr bio;
};

ComTruvexIO_MemoryStream::ComTruvexIO_MemoryStream() : m_writable(true) {}

ComTruvexIO_MemoryStream::ComTruvexIO_MemoryStream(const QByteArray& data) : m_data(data) {}

ComTruvexIO_MemoryStream::~ComTruvexIO_MemoryStream() = default;

std::unique_ptr<ComTruvexIO_MemoryStream> ComTruvexIO_MemoryStream::streamFromData(
    const QByteArray& data) {
    return std::make_unique<ComTruvexIO_MemoryStream>(data);
}

QByteArray ComTruvexIO_MemoryStream::readDataFromStartToEnd() const {
    return m_data;
}

void ComTruvexIO_MemoryStream::close() {
    m_closed = true;
    m_bio.reset();
    m_data.clear();
}

bio_st* ComTruvexIO_MemoryStream::bio() {
    if (m_closed) {
        nivossl::fail(TVXStreamOperationException, kClosed);
    }
    if (!m_bio) {
        auto made = std::make_unique<Bio>();
        if (m_writable) {
            made->buffer = std::make_unique<QBuffer>(&m_data);
            made->buffer->open(QIODevice::WriteOnly);
            made->bio = nivossl::deviceBio(made->buffer.get());
        } else {
            made->bio = nivossl::readOnlyBio(m_data);
        }
        if (!made->bio) {
            nivossl::fail(TVXStreamOperationException, kNoBuffer);
        }
        m_bio = std::move(made);
    }
    return m_bio->bio.get();
}

QByteArray ComTruvexIO_MemoryStream::readAll() {
    if (m_closed) {
        nivossl::fail(TVXStreamOperationException, kClosed);
    }
    return readDataFromStartToEnd();
}
