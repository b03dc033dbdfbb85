#include "crypto/ComTruvexIO_FileStream.h"

#include <QFile>
#include <QSaveFile>
#include <limits>

#include "crypto/OpenSsl.h"
#include "crypto/comTruvexUtil_ExceptionUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kCannotRead = u"Cannot open %1 for reading: %2"_s;
const QString kCannotWrite = u"Cannot create %1: %2"_s;
const QString kCannotCommit = u"Cannot write %1: %2"_s;
const QString kClosed = u"The file stream for %1 is closed"_s;
const QString kNoBio = u"Cannot attach the file stream for %1"_s;

// An OpenSSL BIO over a QIODevice, so that the CMS engine reads and writes through Qt's file
// classes (Unicode paths, atomic replacement).
int deviceWrite(BIO* bio, const char* data, int length) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    return device->write(data, length) == length ? length : -1;
}

int deviceRead(BIO* bio, char* data, int length) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    const qint64 read = device->read(data, length);
    return read < 0 ? -1 : static_cast<int>(read);
}

long deviceCtrl(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    auto* device = static_cast<QIODevice*>(BIO_get_data(bio));
    switch (command) {
    case BIO_CTRL_FLUSH:
        return 1;
    case BIO_CTRL_EOF:
        return device->atEnd() ? 1 : 0;
    default:
        return 0;
    }
}

int deviceCreate(BIO* bio) {
    BIO_set_init(bio, 1);
    return 1;
}

const BIO_METHOD* deviceMethod() {
    static const nivossl::BioMethodPtr method = [] {
        nivossl::BioMethodPtr m(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK,
                                             "Qt device"));
        if (m) {
            BIO_meth_set_write(m.get(), deviceWrite);
            BIO_meth_set_read(m.get(), deviceRead);
            BIO_meth_set_ctrl(m.get(), deviceCtrl);
            BIO_meth_set_create(m.get(), deviceCreate);
        }
        return m;
    }();
    return method.get();
}

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
        made->bio.reset(BIO_new(deviceMethod()));
        if (!made->bio) {
            nivossl::fail(TVXStreamOperationException, kNoBio.arg(m_path));
        }
        BIO_set_data(made->bio.get(), m_device.get());
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
