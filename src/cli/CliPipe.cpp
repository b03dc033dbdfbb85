#include "CliPipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "crypto/CmsArmour.h"
#include "processing/PathText.h"
#include "processing/ProcessController.h"
#include "storage/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;

const QString CliPipe::kStandardInput = u"(standard input)"_s;
const QString CliPipe::kStandardOutput = u"(standard output)"_s;

namespace {

const QString kCannotTakeInput = u"Cannot keep standard input: %1"_s;
const QString kCannotMakeFolder = u"Cannot make a private folder in %1"_s;
const QString kCannotRead = u"Cannot read %1: %2"_s;
const QString kCannotWrite = u"Cannot write to standard output: %1"_s;

constexpr size_t kBlockBytes = 64 * 1024;

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// Copies everything from one descriptor to the other; 0 or the errno of the failure, with
// `onWrite` telling which side failed.
int copyAll(int from, int to, bool& onWrite) {
    std::array<char, kBlockBytes> block{};
    for (;;) {
        const ssize_t got = ::read(from, block.data(), block.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            onWrite = false;
            return got == 0 ? 0 : errno;
        }
        for (ssize_t sent = 0; sent < got;) {
            const ssize_t put = ::write(to, block.data() + sent, static_cast<size_t>(got - sent));
            if (put < 0 && errno == EINTR) {
                continue;
            }
            if (put < 0) {
                onWrite = true;
                return errno;
            }
            sent += put;
        }
    }
}

// An unnamed file in `folder` for reading and writing; -1 with errno on failure.
int openUnnamed(const QString& folder) {
    const QByteArray encoded = QFile::encodeName(folder);
#ifdef O_TMPFILE
    const int unnamed = ::open(encoded.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (unnamed >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
        return unnamed;
    }
#endif
    // Where the file system has no unnamed files: a named one, unlinked at once.
    QByteArray pattern = encoded + "/.stdin.nivogx-XXXXXX";
    const int fd = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (fd >= 0) {
        ::unlink(pattern.constData());
    }
    return fd;
}

}  // namespace

CliPipe::CliPipe(QString folder) : m_folder(std::move(folder)) {}

CliPipe::~CliPipe() {
    if (m_inputFd >= 0) {
        ::close(m_inputFd);
    }
}

bool CliPipe::standardOutputIsTerminal() {
    return ::isatty(STDOUT_FILENO) != 0;
}

QString CliPipe::takeStandardInput(QString& failure) {
    m_inputFd = openUnnamed(m_folder);
    if (m_inputFd < 0) {
        failure = kCannotTakeInput.arg(systemError(errno));
        return {};
    }
    bool onWrite = false;
    if (const int error = copyAll(STDIN_FILENO, m_inputFd, onWrite); error != 0) {
        failure = kCannotTakeInput.arg(systemError(error));
        return {};
    }
    // The run opens the file anew by this name, which stays valid while the descriptor lives.
    return u"/proc/self/fd/%1"_s.arg(m_inputFd);
}

QString CliPipe::outputFolder(QString& failure) {
    if (!m_outputFolder) {
        m_outputFolder = std::make_unique<QTemporaryDir>(m_folder + u"/.stdout-XXXXXX"_s);
    }
    if (!m_outputFolder->isValid()) {
        failure = kCannotMakeFolder.arg(m_folder);
        return {};
    }
    return m_outputFolder->path();
}

QString CliPipe::releaseArmoured(const QString& path) {
    QFile in(path);
    if (!in.open(QIODevice::ReadOnly)) {
        return kCannotRead.arg(path, in.errorString());
    }
    ::unlink(QFile::encodeName(path).constData());
    QFile out;
    if (!out.open(STDOUT_FILENO, QIODevice::WriteOnly, QFileDevice::DontCloseHandle)) {
        return kCannotWrite.arg(out.errorString());
    }
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &previous);
    QString failure = CmsArmour::wrap(in, out);
    if (failure.isEmpty() && !out.flush()) {
        failure = out.errorString();
    }
    ::sigaction(SIGPIPE, &previous, nullptr);
    return failure.isEmpty() ? QString() : kCannotWrite.arg(failure);
}

QString CliPipe::placeArmoured(const QString& path, const QString& folder, QString& placedPath) {
    QFile in(path);
    if (!in.open(QIODevice::ReadOnly)) {
        return kCannotRead.arg(path, in.errorString());
    }
    AtomicFile out(
        ProcessController::generateOutputFilePath(folder, PathText::lastComponent(path), true));
    if (!out.open()) {
        return out.errorString();
    }
    if (const QString failure = CmsArmour::wrap(in, *out.device()); !failure.isEmpty()) {
        out.discard();
        return failure;
    }
    if (!out.commitAsNew([](const QString& taken) {
            return ProcessController::nextFreeOutputPath(taken);
        })) {
        return out.errorString();
    }
    in.remove();
    placedPath = out.path();
    return {};
}

QString CliPipe::release(const QString& path) {
    const QByteArray encoded = QFile::encodeName(path);
    const int fd = ::open(encoded.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return kCannotRead.arg(path, systemError(errno));
    }
    // From here the content has no name: a kill leaves nothing behind.
    ::unlink(encoded.constData());
    // A reader that goes away is a failure to write, not a reason to die without a word.
    struct sigaction ignore {};
    struct sigaction previous {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, &previous);
    bool onWrite = false;
    const int error = copyAll(fd, STDOUT_FILENO, onWrite);
    ::sigaction(SIGPIPE, &previous, nullptr);
    ::close(fd);
    if (error != 0) {
        return onWrite ? kCannotWrite.arg(systemError(error))
                       : kCannotRead.arg(path, systemError(error));
    }
    return {};
}
