#include "crypto/ComTruvexIO_FileStream.h"

#include <QFile>

#include "crypto/OpenSsl.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"
#include "storage/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kCannotRead = u"Cannot open %1 for reading: %2"_s;
const QString kCannotWrite = u"Cannot create %1: %2"_s;
const QString kCannotCommit = u"Cannot write %1: %2"_s;
const QString kClosed = u"The file stream for %1 is closed"_s;
const QString kNoBio = u"Cannot attach the file stream for %1"_s;

}  // namespace

struct ComTruvexIO_FileStream::Bio {
    nivossl::BioPtr bio;
};

ComTruvexIO_FileStream::ComTruvexIO_FileStream(QString path, std::unique_ptr<QFile> input,
                                               std::unique_ptr<AtomicFile> output)
    : m_path(std::move(path)), m_input(std::move(input)), m_output(std::move(output)) {}

ComTruvexIO_FileStream::~ComTruvexIO_FileStream() {
    close();
}

std::unique_ptr<ComTruvexIO_FileStream> ComTruvexIO_FileStream::initForReading(
    const QString& path) {
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::ReadOnly)) {
        nivossl::fail(TVXStreamOperationException, kCannotRead.arg(path, file->errorString()));
    }
    return std::unique_ptr<ComTruvexIO_FileStream>(
        new ComTruvexIO_FileStream(path, std::move(file), nullptr));
}

std::unique_ptr<ComTruvexIO_FileStream> ComTruvexIO_FileStream::initForWriting(
    const QString& path, std::optional<QFileDevice::Permissions> permissions) {
    auto file = std::make_unique<AtomicFile>(path);
    // Permissions go on the temporary file before any byte lands in it.
    if (!file->open(permissions)) {
        nivossl::fail(TVXStreamOperationException, kCannotWrite.arg(path, file->errorString()));
    }
    return std::unique_ptr<ComTruvexIO_FileStream>(
        new ComTruvexIO_FileStream(path, nullptr, std::move(file)));
}

void ComTruvexIO_FileStream::commit() {
    if (!m_output || m_committed) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    m_bio.reset();
    if (!m_output->commit()) {
        nivossl::fail(TVXStreamOperationException,
                      kCannotCommit.arg(m_path, m_output->errorString()));
    }
    m_committed = true;
}

void ComTruvexIO_FileStream::close() {
    m_bio.reset();
    m_input.reset();
    // Without a commit nothing appears under the name.
    m_output.reset();
}

bio_st* ComTruvexIO_FileStream::bio() {
    QIODevice* device = m_input ? static_cast<QIODevice*>(m_input.get())
                                : (m_output && !m_committed ? m_output->device() : nullptr);
    if (device == nullptr) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    if (!m_bio) {
        auto made = std::make_unique<Bio>();
        made->bio = nivossl::deviceBio(device);
        if (!made->bio) {
            nivossl::fail(TVXStreamOperationException, kNoBio.arg(m_path));
        }
        m_bio = std::move(made);
    }
    return m_bio->bio.get();
}

QByteArray ComTruvexIO_FileStream::readAll() {
    if (!m_input) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    return m_input->readAll();
}
