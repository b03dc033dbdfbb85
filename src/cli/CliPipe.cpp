#include "CliPipe.h"

#include <unistd.h>

#include <QFile>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "crypto/cms/CmsArmour.h"
#include "platform/AtomicFile.h"

using namespace Qt::Literals::StringLiterals;

const QString CliPipe::kStandardInput = u"(standard input)"_s;
const QString CliPipe::kStandardOutput = u"(standard output)"_s;

namespace {

const QString kCannotTakeInput = u"Cannot keep standard input: %1"_s;
const QString kCannotRead = u"Cannot read the result: %1"_s;
const QString kCannotWrite = u"Cannot write to standard output: %1"_s;

constexpr qint64 kBlockBytes = 64 * 1024;

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

// Writes all of `data` to `fd`; 0 or the errno of the failure.
int writeAll(int fd, const char* data, qint64 size) {
    for (qint64 sent = 0; sent < size;) {
        const ssize_t put = ::write(fd, data + sent, static_cast<size_t>(size - sent));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put < 0) {
            return errno;
        }
        sent += put;
    }
    return 0;
}

}  // namespace

CliPipe::CliPipe(QString folder) : m_folder(std::move(folder)) {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &ignore, nullptr);
}

CliPipe::~CliPipe() = default;

bool CliPipe::standardOutputIsTerminal() {
    return ::isatty(STDOUT_FILENO) != 0;
}

QString CliPipe::takeStandardInput(QString& failure) {
    m_input = std::make_unique<AtomicFile>(m_folder + u"/stdin"_s);
    if (!m_input->open(AtomicFile::OwnerOnly)) {
        failure = kCannotTakeInput.arg(m_input->errorString());
        return {};
    }
    std::array<char, kBlockBytes> block{};
    for (;;) {
        const ssize_t got = ::read(STDIN_FILENO, block.data(), block.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            failure = kCannotTakeInput.arg(systemError(errno));
            return {};
        }
        if (got == 0) {
            break;
        }
        if (m_input->device()->write(block.data(), got) != got) {
            const QString reason = m_input->writeFailure();
            failure =
                kCannotTakeInput.arg(reason.isEmpty() ? m_input->device()->errorString() : reason);
            return {};
        }
    }
    const QString path = m_input->readBackPath();
    if (path.isEmpty()) {
        failure = kCannotTakeInput.arg(m_input->errorString());
    }
    return path;
}

QString CliPipe::release(QIODevice& result, bool armoured) {
    if (armoured) {
        QFile out;
        if (!out.open(STDOUT_FILENO, QIODevice::WriteOnly, QFileDevice::DontCloseHandle)) {
            return kCannotWrite.arg(out.errorString());
        }
        QString failure = CmsArmour::wrap(result, out);
        if (failure.isEmpty() && !out.flush()) {
            failure = out.errorString();
        }
        return failure.isEmpty() ? QString() : kCannotWrite.arg(failure);
    }
    std::array<char, kBlockBytes> block{};
    for (;;) {
        const qint64 got = result.read(block.data(), kBlockBytes);
        if (got < 0) {
            return kCannotRead.arg(result.errorString());
        }
        if (got == 0) {
            return {};
        }
        if (const int error = writeAll(STDOUT_FILENO, block.data(), got); error != 0) {
            return kCannotWrite.arg(systemError(error));
        }
    }
}
