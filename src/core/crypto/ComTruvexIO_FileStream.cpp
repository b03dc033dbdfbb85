#include "crypto/ComTruvexIO_FileStream.h"

#include <QFile>
#include <algorithm>

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

// Progress is told in steps of this many bytes: often enough for a smooth bar, rarely enough to
// cost nothing.
constexpr qint64 kProgressStep = qint64{1} << 20;

// A file that counts what is read from it.
class CountingFile final : public QFile {
public:
    CountingFile(const QString& path, ComTruvexIO_FileStream::ReadProgress progress)
        : QFile(path), m_progress(std::move(progress)) {}

    void start() {
        m_total = size();
        m_progress(0, m_total);
    }

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        const qint64 read = QFile::readData(data, maxSize);
        if (read > 0) {
            m_done += read;
            if (m_done - m_reported >= kProgressStep || m_done >= m_total) {
                m_reported = m_done;
                m_progress(m_done, std::max(m_total, m_done));
            }
        }
        return read;
    }

private:
    ComTruvexIO_FileStream::ReadProgress m_progress;
    qint64 m_total = 0;
    qint64 m_done = 0;
    qint64 m_reported = 0;
};

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
    const QString& path, ReadProgress progress) {
    std::unique_ptr<QFile> file;
    CountingFile* counting = nullptr;
    if (progress) {
        auto made = std::make_unique<CountingFile>(path, std::move(progress));
        counting = made.get();
        file = std::move(made);
    } else {
        file = std::make_unique<QFile>(path);
    }
    // The CMS layer reads in large pieces; a second buffer would only copy them once more.
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        nivossl::fail(TVXStreamOperationException, kCannotRead.arg(path, file->errorString()));
    }
    if (counting != nullptr) {
        counting->start();
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
