#include "crypto/toolkit/ComTruvexIO_FileStream.h"

#include <QFile>
#include <QFileInfo>
#include <algorithm>
#include <optional>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

#include "crypto/cms/OpenSsl.h"
#include "crypto/toolkit/comTruvexUtil_ExceptionUtil.h"
#include "platform/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;

const QString ComTruvexIO_FileStream::kInputChanged = u"The file changed while it was being read."_s;
const QString ComTruvexIO_FileStream::kInputGone = u"%1 is no longer there."_s;
const QString ComTruvexIO_FileStream::kInputUnreadable = u"%1 cannot be read."_s;
const QString ComTruvexIO_FileStream::kStopped = u"Stopped before the end."_s;

namespace {

const QString kCannotRead = u"Cannot open %1 for reading: %2"_s;
const QString kClosed = u"The file stream for %1 is closed"_s;
const QString kNoBio = u"Cannot attach the file stream for %1"_s;

// Progress is told in steps of this many bytes: often enough for a smooth bar, rarely enough to
// cost nothing.
constexpr qint64 kProgressStep = qint64{1} << 20;

// What tells one state of a file from another: a file that was replaced, grew, shrank or was
// written to since differs in at least one of them.
struct Identity {
    quint64 device = 0;
    quint64 inode = 0;
    qint64 size = 0;
    qint64 modifiedSeconds = 0;
    qint64 modifiedNanoseconds = 0;
    bool regular = false;

    bool operator==(const Identity&) const = default;
};

#ifdef Q_OS_UNIX
Identity identityOf(const struct stat& status) {
    return {static_cast<quint64>(status.st_dev), static_cast<quint64>(status.st_ino),
            static_cast<qint64>(status.st_size), static_cast<qint64>(status.st_mtim.tv_sec),
            static_cast<qint64>(status.st_mtim.tv_nsec), S_ISREG(status.st_mode)};
}
#endif

// Fails with `text` alone: what OpenSSL recorded on the way says nothing about these causes.
[[noreturn]] void failPlainly(const QString& text) {
    (void)nivossl::Errors::drain();
    nivossl::fail(TVXStreamOperationException, text, nivossl::Errors::drain());
}

}  // namespace

// The input file: counts what is read from it, stops reading once cancelled, and remembers
// which file it opened.
class ComTruvexIO_FileStream::WatchedFile final : public QFile {
public:
    WatchedFile(const QString& path, ReadProgress progress, const std::atomic<bool>* cancelled)
        : QFile(path), m_progress(std::move(progress)), m_cancelled(cancelled) {}

    void start() {
        m_opened = current(true);
        m_total = size();
        if (m_progress) {
            m_progress(0, m_total);
        }
    }

    [[nodiscard]] bool cancelled() const {
        return m_cancelled != nullptr && m_cancelled->load(std::memory_order_relaxed);
    }

    // Whether the path still leads to the file opened, as it was then.
    [[nodiscard]] bool unchanged() const {
        const std::optional<Identity> now = current(true);
        const std::optional<Identity> named = current(false);
        // Only regular files have a size and time that mean anything.
        if (!m_opened || !m_opened->regular) {
            return now && named && now->device == named->device && now->inode == named->inode;
        }
        return now == m_opened && named == m_opened;
    }

    [[nodiscard]] bool gone() const { return !QFileInfo::exists(fileName()); }

protected:
    qint64 readData(char* data, qint64 maxSize) override {
        if (cancelled()) {
            setErrorString(kStopped);
            return -1;
        }
        const qint64 read = QFile::readData(data, maxSize);
        if (read > 0 && m_progress) {
            m_done += read;
            if (m_done - m_reported >= kProgressStep || m_done >= m_total) {
                m_reported = m_done;
                m_progress(m_done, std::max(m_total, m_done));
            }
        }
        return read;
    }

private:
    // The identity of the open file, or of the file now at its path.
    [[nodiscard]] std::optional<Identity> current(bool open) const {
#ifdef Q_OS_UNIX
        struct stat status {};
        const int result = open ? ::fstat(handle(), &status)
                                : ::stat(QFile::encodeName(fileName()).constData(), &status);
        if (result != 0) {
            return std::nullopt;
        }
        return identityOf(status);
#else
        const QFileInfo info(fileName());
        if (!info.exists()) {
            return std::nullopt;
        }
        return Identity{0, 0, info.size(), info.lastModified().toMSecsSinceEpoch(), 0,
                        info.isFile()};
#endif
    }

    ReadProgress m_progress;
    const std::atomic<bool>* m_cancelled;
    std::optional<Identity> m_opened;
    qint64 m_total = 0;
    qint64 m_done = 0;
    qint64 m_reported = 0;
};

struct ComTruvexIO_FileStream::Bio {
    nivossl::BioPtr bio;
};

ComTruvexIO_FileStream::ComTruvexIO_FileStream(QString path, std::unique_ptr<WatchedFile> input,
                                               std::unique_ptr<AtomicFile> output)
    : m_path(std::move(path)), m_input(std::move(input)), m_output(std::move(output)) {}

ComTruvexIO_FileStream::~ComTruvexIO_FileStream() {
    close();
}

std::unique_ptr<ComTruvexIO_FileStream> ComTruvexIO_FileStream::initForReading(
    const QString& path, ReadProgress progress, const std::atomic<bool>* cancelled) {
    auto file = std::make_unique<WatchedFile>(path, std::move(progress), cancelled);
    // The CMS layer reads in large pieces; a second buffer would only copy them once more.
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        const QFileInfo info(path);
        if (!info.exists()) {
            failPlainly(kInputGone.arg(path));
        }
        if (!info.isReadable()) {
            failPlainly(kInputUnreadable.arg(path));
        }
        nivossl::fail(TVXStreamOperationException, kCannotRead.arg(path, file->errorString()));
    }
    file->start();
    return std::unique_ptr<ComTruvexIO_FileStream>(
        new ComTruvexIO_FileStream(path, std::move(file), nullptr));
}

std::unique_ptr<ComTruvexIO_FileStream> ComTruvexIO_FileStream::initForWriting(
    const QString& path, std::optional<QFileDevice::Permissions> permissions) {
    auto file = std::make_unique<AtomicFile>(path);
    // Permissions go on the temporary file before any byte lands in it. The writer's texts name
    // the file or its folder already.
    if (!file->open(permissions)) {
        failPlainly(file->errorString());
    }
    return std::unique_ptr<ComTruvexIO_FileStream>(
        new ComTruvexIO_FileStream(path, nullptr, std::move(file)));
}

void ComTruvexIO_FileStream::ensureIntact() const {
    if (!m_input) {
        return;
    }
    if (m_input->cancelled()) {
        failPlainly(kStopped);
    }
    if (m_input->gone()) {
        failPlainly(kInputGone.arg(m_path));
    }
    if (!m_input->unchanged()) {
        failPlainly(kInputChanged);
    }
}

QString ComTruvexIO_FileStream::writeFailure() const {
    return m_output && !m_committed ? m_output->writeFailure() : QString();
}

void ComTruvexIO_FileStream::commit(const std::function<QString(const QString&)>& nextName) {
    if (!m_output || m_committed) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    m_bio.reset();
    if (!(nextName ? m_output->commitAsNew(nextName) : m_output->commit())) {
        // The writer's texts name the file or its folder.
        failPlainly(m_output->errorString());
    }
    m_path = m_output->path();
    m_committed = true;
}

void ComTruvexIO_FileStream::handOver(const std::function<QString(QIODevice&)>& take) {
    if (!m_output || m_committed) {
        nivossl::fail(TVXStreamOperationException, kClosed.arg(m_path));
    }
    m_bio.reset();
    const QString readBack = m_output->readBackPath();
    if (readBack.isEmpty()) {
        failPlainly(m_output->errorString());
    }
    QFile written(readBack);
    if (!written.open(QIODevice::ReadOnly)) {
        failPlainly(kCannotRead.arg(m_path, written.errorString()));
    }
    if (const QString failure = take(written); !failure.isEmpty()) {
        failPlainly(failure);
    }
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
