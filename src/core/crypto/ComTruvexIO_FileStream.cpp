#include "crypto/ComTruvexIO_FileStream.h"

#include <QFile>
#include <QSaveFile>

#include "crypto/OpenSsl.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

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

ComTruvexIO_FileStream::ComTruvexIO_FileStream(QString path, std::unique_ptr<QIODevice> device,
                                               bool writing)
    : m_path(std::move(path)), m_device(std::move(device)), m_writing(writing) {}

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
        new ComTruvexIO_FileStream(path, std::move(file), false));
}

std::unique_ptr<ComTruvexIO_FileStream> ComTruvexIO_FileStream::initForWriting(
    const QString& path, std::optional<QFileDevice::Permissions> permissions) {
    auto file = std::make_unique<QSaveFile>(path);
    // Permissions go on the temporary file before any byte lands in it.
    if (!file->open(QIODevice::WriteOnly) ||
        (permissions && !file->setPermissions(*permissions))) {
        nivossl::fail(TVXStreamOperationException, kCannotWrite.arg(path, file->errorString()));
    }
    return std::unique_ptr<ComTruvexIO_FileStream>(
        new ComTruvexIO_FileStream(path, std::move(file), true));
}

void ComTruvexIO_FileStream::commit() {
    auto* file = dynamic_cast<QSaveFile*>(m_device.get());
    if (file == nullptr || m_committed) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    m_bio.reset();
    if (!file->commit()) {
        nivossl::fail(TVXStreamOperationException, kCannotCommit.arg(m_path, file->errorString()));
    }
    m_committed = true;
}

void ComTruvexIO_FileStream::close() {
    m_bio.reset();
    if (!m_device) {
        return;
    }
    if (auto* file = dynamic_cast<QSaveFile*>(m_device.get()); file != nullptr && !m_committed) {
        file->cancelWriting();
    }
    m_device.reset();
}

bio_st* ComTruvexIO_FileStream::bio() {
    if (!m_device || m_committed) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    if (!m_bio) {
        auto made = std::make_unique<Bio>();
        made->bio = nivossl::deviceBio(m_device.get());
        if (!made->bio) {
            nivossl::fail(TVXStreamOperationException, kNoBio.arg(m_path));
        }
        m_bio = std::move(made);
    }
    return m_bio->bio.get();
}

QByteArray ComTruvexIO_FileStream::readAll() {
    if (!m_device || m_writing) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    return m_device->readAll();
}
