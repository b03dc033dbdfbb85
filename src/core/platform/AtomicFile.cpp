#include "platform/AtomicFile.h"

#include <QFileInfo>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <thread>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kNameAttempts = 64;

const QString kCannotCreate = u"Cannot create a temporary file for %1: %2"_s;
const QString kCannotWrite = u"Cannot write %1: %2"_s;
const QString kCannotRead = u"Cannot read %1: %2"_s;
const QString kNotOpen = u"%1 is not open for writing"_s;
const QString kTaken = u"Cannot write %1: every free name was taken"_s;
const QString kNoSpace = u"Not enough space to write %1."_s;
const QString kFolderNotWritable = u"The folder %1 is not writable."_s;
const QString kNoFolder = u"The folder %1 does not exist."_s;

// How often a taken name makes way for the next one before the commit gives up.
constexpr int kPlaceAttempts = 1000;

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

#ifdef Q_OS_UNIX

mode_t modeOf(QFileDevice::Permissions permissions) {
    mode_t mode = 0;
    const std::pair<QFileDevice::Permission, mode_t> bits[] = {
        {QFileDevice::ReadOwner, S_IRUSR}, {QFileDevice::WriteOwner, S_IWUSR},
        {QFileDevice::ExeOwner, S_IXUSR},  {QFileDevice::ReadGroup, S_IRGRP},
        {QFileDevice::WriteGroup, S_IWGRP}, {QFileDevice::ExeGroup, S_IXGRP},
        {QFileDevice::ReadOther, S_IROTH}, {QFileDevice::WriteOther, S_IWOTH},
        {QFileDevice::ExeOther, S_IXOTH},
    };
    for (const auto& [permission, bit] : bits) {
        if (permissions.testFlag(permission)) {
            mode |= bit;
        }
    }
    return mode;
}

// Some file systems cannot make unnamed files, and a test may want to see the named ones.
bool unnamedAllowed() {
    return qEnvironmentVariableIsEmpty("NIVOGX_NAMED_TEMPORARY_FILES");
}

#endif

}  // namespace

AtomicFile::AtomicFile(QString path) : m_path(std::move(path)) {}

AtomicFile::~AtomicFile() {
    if (!m_committed) {
        discard();
    }
}

bool AtomicFile::fail(const QString& message) {
    m_error = message;
    return false;
}

QString AtomicFile::describe(int error, const QString& fallback) const {
    const QString folder = QFileInfo(m_path).absolutePath();
    switch (error) {
        case ENOSPC:
#ifdef EDQUOT
        case EDQUOT:
#endif
            return kNoSpace.arg(folder);
        case EACCES:
        case EPERM:
        case EROFS:
            return kFolderNotWritable.arg(folder);
        case ENOENT:
        case ENOTDIR:
            return kNoFolder.arg(folder);
        default:
            return fallback;
    }
}

#ifdef Q_OS_UNIX

bool AtomicFile::open(std::optional<QFileDevice::Permissions> permissions) {
    discard();
    m_committed = false;
    m_error.clear();
    const mode_t mode = permissions ? modeOf(*permissions) : mode_t{0666};
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        if (!openUnnamed(mode) && !openNamed(mode)) {
            return false;
        }
        // The lock says "still being written" to removeStaleTemporaries() of any process; the
        // system drops it when this process ends, however it ends.
        if (::flock(m_fd, LOCK_EX) != 0 || (permissions && ::fchmod(m_fd, mode) != 0)) {
            const int error = errno;
            discard();
            return fail(describe(error, kCannotCreate.arg(m_path, systemError(error))));
        }
        // A cleaner may have taken the name between its creation and the lock: another name.
        struct stat status {};
        if (!m_temporaryPath.isEmpty() && (::fstat(m_fd, &status) != 0 || status.st_nlink == 0)) {
            m_temporaryPath.clear();
            discard();
            continue;
        }
        if (!m_file.open(m_fd, QIODevice::WriteOnly, QFileDevice::DontCloseHandle)) {
            const QString reason = m_file.errorString();
            discard();
            return fail(kCannotCreate.arg(m_path, reason));
        }
        return true;
    }
    return fail(kCannotCreate.arg(m_path, systemError(EEXIST)));
}

bool AtomicFile::openUnnamed([[maybe_unused]] unsigned mode) {
#ifdef O_TMPFILE
    if (!unnamedAllowed()) {
        return false;
    }
    const QByteArray folder = QFile::encodeName(QFileInfo(m_path).absolutePath());
    m_fd = ::open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
    return m_fd >= 0;
#else
    return false;
#endif
}

bool AtomicFile::openNamed(unsigned mode) {
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        const QString candidate = TemporaryFiles::nameBeside(m_path);
        m_fd = ::open(QFile::encodeName(candidate).constData(),
                      O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, mode);
        if (m_fd >= 0) {
            m_temporaryPath = candidate;
            return true;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    const int error = errno;
    return fail(describe(error, kCannotCreate.arg(m_path, systemError(error))));
}

namespace {

// Renames `from` to `to` only while `to` is free; -1 with errno EEXIST when it is not.
int renameNoReplace(const QByteArray& from, const QByteArray& to) {
#ifdef RENAME_NOREPLACE
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return -1;
    }
#endif
    // Where the file system cannot rename that way, a second link fails just as surely on a
    // taken name.
    if (::link(from.constData(), to.constData()) != 0) {
        return -1;
    }
    ::unlink(from.constData());
    return 0;
}

}  // namespace

bool AtomicFile::putInFreePlace(const NextName& nextName) {
    if (::fsync(m_fd) != 0) {
        const int error = errno;
        return fail(describe(error, kCannotWrite.arg(m_path, systemError(error))));
    }
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(m_fd);
    for (int attempt = 0; attempt < kPlaceAttempts; ++attempt) {
        const QByteArray target = QFile::encodeName(m_path);
        // A link of the unnamed file, like a rename without replacing, fails on a taken name.
        const int placed = m_temporaryPath.isEmpty()
                               ? ::linkat(AT_FDCWD, self.constData(), AT_FDCWD,
                                          target.constData(), AT_SYMLINK_FOLLOW)
                               : renameNoReplace(QFile::encodeName(m_temporaryPath), target);
        if (placed == 0) {
            m_temporaryPath.clear();
            return true;
        }
        const int error = errno;
        if (error != EEXIST) {
            return fail(describe(error, kCannotWrite.arg(m_path, systemError(error))));
        }
        const QString next = nextName ? nextName(m_path) : QString();
        if (next.isEmpty()) {
            break;
        }
        m_path = next;
    }
    return fail(kTaken.arg(m_path));
}

bool AtomicFile::putInPlace() {
    if (::fsync(m_fd) != 0) {
        const int error = errno;
        return fail(describe(error, kCannotWrite.arg(m_path, systemError(error))));
    }
    const QByteArray target = QFile::encodeName(m_path);
    if (m_temporaryPath.isEmpty()) {
        const QByteArray self = "/proc/self/fd/" + QByteArray::number(m_fd);
        if (::linkat(AT_FDCWD, self.constData(), AT_FDCWD, target.constData(),
                     AT_SYMLINK_FOLLOW) == 0) {
            return true;
        }
        if (errno != EEXIST) {
            return fail(kCannotWrite.arg(m_path, systemError(errno)));
        }
        // A file is there already: a name of our own beside it, then a rename over it, which
        // replaces the old file in one step.
        for (int attempt = 0; attempt < kNameAttempts && m_temporaryPath.isEmpty(); ++attempt) {
            const QString candidate = TemporaryFiles::nameBeside(m_path);
            if (::linkat(AT_FDCWD, self.constData(), AT_FDCWD,
                         QFile::encodeName(candidate).constData(), AT_SYMLINK_FOLLOW) == 0) {
                m_temporaryPath = candidate;
            } else if (errno != EEXIST) {
                return fail(kCannotWrite.arg(m_path, systemError(errno)));
            }
        }
        if (m_temporaryPath.isEmpty()) {
            return fail(kCannotWrite.arg(m_path, systemError(EEXIST)));
        }
    }
    if (::rename(QFile::encodeName(m_temporaryPath).constData(), target.constData()) != 0) {
        return fail(kCannotWrite.arg(m_path, systemError(errno)));
    }
    m_temporaryPath.clear();
    return true;
}

namespace {

// From this size on, a file thrown away is let go of on a thread of its own.
constexpr qint64 kLargeDiscard = qint64{64} << 20;

// Closing the last reference to a large file frees its blocks, which takes the file system most
// of a second for a few GiB. A file thrown away has no name by then, so nothing is left to see;
// only its space comes back a moment later, and a cancelled run ends at once.
void closeDiscarded(int fd) {
    struct stat status {};
    if (::fstat(fd, &status) == 0 && status.st_nlink == 0 && status.st_size >= kLargeDiscard) {
        try {
            std::thread([fd] { ::close(fd); }).detach();
            return;
        } catch (const std::system_error&) {
            // No thread to spare: close it here.
        }
    }
    ::close(fd);
}

}  // namespace

void AtomicFile::discard() {
    m_file.close();
    if (!m_temporaryPath.isEmpty()) {
        ::unlink(QFile::encodeName(m_temporaryPath).constData());
        m_temporaryPath.clear();
    }
    if (m_fd >= 0) {
        closeDiscarded(m_fd);
        m_fd = -1;
    }
}

#else  // Without the Unix calls: a named temporary file, renamed over the target.

bool AtomicFile::open(std::optional<QFileDevice::Permissions> permissions) {
    discard();
    m_committed = false;
    m_error.clear();
    for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
        m_file.setFileName(TemporaryFiles::nameBeside(m_path));
        if (m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            m_temporaryPath = m_file.fileName();
            if (permissions && !m_file.setPermissions(*permissions)) {
                // Never write private bytes into a file that others may read.
                const QString reason = m_file.errorString();
                discard();
                return fail(kCannotCreate.arg(m_path, reason));
            }
            return true;
        }
    }
    return fail(kCannotCreate.arg(m_path, m_file.errorString()));
}

bool AtomicFile::openNamed(unsigned) { return false; }

bool AtomicFile::putInFreePlace(const NextName& nextName) {
    for (int attempt = 0; attempt < kPlaceAttempts; ++attempt) {
        if (!QFileInfo::exists(m_path)) {
            return putInPlace();
        }
        const QString next = nextName ? nextName(m_path) : QString();
        if (next.isEmpty()) {
            break;
        }
        m_path = next;
    }
    return fail(kTaken.arg(m_path));
}
bool AtomicFile::openUnnamed(unsigned) { return false; }

bool AtomicFile::putInPlace() {
    std::error_code error;
    std::filesystem::rename(QFile::encodeName(m_temporaryPath).toStdString(),
                            QFile::encodeName(m_path).toStdString(), error);
    if (error) {
        return fail(kCannotWrite.arg(m_path, QString::fromStdString(error.message())));
    }
    m_temporaryPath.clear();
    return true;
}

void AtomicFile::discard() {
    m_file.close();
    if (!m_temporaryPath.isEmpty()) {
        QFile::remove(m_temporaryPath);
        m_temporaryPath.clear();
    }
}

#endif

bool AtomicFile::commit() {
    return finishCommit(true, {});
}

bool AtomicFile::commitAsNew(const NextName& nextName) {
    return finishCommit(false, nextName);
}

QString AtomicFile::writeFailure() const {
    int error = m_file.writeError();
    // Writes that fail while the buffer is flushed bypass writeData(); Qt marks a full disk so.
    if (error == 0 && m_file.error() == QFileDevice::ResourceError) {
        error = ENOSPC;
    }
    return error == 0 ? QString()
                      : describe(error, kCannotWrite.arg(m_path, systemError(error)));
}

QString AtomicFile::readBackPath() {
    if (!m_file.isOpen()) {
        fail(kNotOpen.arg(m_path));
        return {};
    }
    if (!m_file.flush() || m_file.writeError() != 0) {
        const QString failure = writeFailure();
        fail(failure.isEmpty() ? kCannotWrite.arg(m_path, m_file.errorString()) : failure);
        return {};
    }
    return m_temporaryPath.isEmpty() ? u"/proc/self/fd/%1"_s.arg(m_fd) : m_temporaryPath;
}

bool AtomicFile::finishCommit(bool replace, const NextName& nextName) {
    if (!m_file.isOpen()) {
        return fail(kNotOpen.arg(m_path));
    }
    const bool written = m_file.flush() && m_file.error() == QFileDevice::NoError &&
                         m_file.writeError() == 0;
    const QString reason = m_file.errorString();
    const QString failure = written ? QString() : writeFailure();
    m_file.close();
    if (!written) {
        discard();
        return fail(failure.isEmpty() ? kCannotWrite.arg(m_path, reason) : failure);
    }
    if (!(replace ? putInPlace() : putInFreePlace(nextName))) {
        discard();
        return false;
    }
    // Only closes what is still open: the temporary file is the final one now.
    discard();
    m_committed = true;
    return true;
}

bool AtomicFile::write(const QString& path, const QByteArray& data, QString* error,
                       QFileDevice::Permissions permissions) {
    AtomicFile file(path);
    if (file.open(permissions)) {
        // A failed write leaves its mark on the device, so commit() refuses and says why.
        file.device()->write(data);
        if (file.commit()) {
            return true;
        }
    }
    if (error != nullptr) {
        *error = file.errorString();
    }
    return false;
}

bool AtomicFile::copy(const QString& source, const QString& path, QString* error,
                      QFileDevice::Permissions permissions) {
    const auto failed = [error](const QString& reason) {
        if (error != nullptr) {
            *error = reason;
        }
        return false;
    };
    QFile input(source);
    if (!input.open(QIODevice::ReadOnly)) {
        return failed(kCannotRead.arg(source, input.errorString()));
    }
    AtomicFile output(path);
    if (!output.open(permissions)) {
        return failed(output.errorString());
    }
    constexpr qint64 kBlockSize = 1 << 16;
    while (!input.atEnd()) {
        const QByteArray block = input.read(kBlockSize);
        if (block.isEmpty()) {
            return failed(kCannotRead.arg(source, input.errorString()));
        }
        if (output.device()->write(block) != block.size()) {
            break;  // commit() names the failure
        }
    }
    return output.commit() || failed(output.errorString());
}
