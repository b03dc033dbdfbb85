#include "platform/TemporaryFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#endif

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kTemporaryPattern = u".%1.nivogx-%2.part"_s;
constexpr int kRandomLength = 8;

const QRegularExpression& temporaryName() {
    static const QRegularExpression re(
        u"^\\..+\\.nivogx-[A-Za-z0-9]{%1}\\.part$"_s.arg(kRandomLength),
        QRegularExpression::DotMatchesEverythingOption);
    return re;
}

QString randomTag() {
    static constexpr char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QString tag;
    for (int i = 0; i < kRandomLength; ++i) {
        tag += QChar::fromLatin1(
            kAlphabet[QRandomGenerator::global()->bounded(int{sizeof kAlphabet - 1})]);
    }
    return tag;
}

}  // namespace

QString TemporaryFiles::nameBeside(const QString& path) {
    const QFileInfo info(path);
    return info.dir().filePath(kTemporaryPattern.arg(info.fileName(), randomTag()));
}

bool TemporaryFiles::isTemporaryName(QStringView fileName) {
    return temporaryName().match(fileName.toString()).hasMatch();
}

#ifdef Q_OS_UNIX

int TemporaryFiles::removeStale(const QString& folder) {
    if (folder.isEmpty()) {
        return 0;
    }
    const QDir dir(folder);
    int removed = 0;
    for (const QString& name :
         dir.entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoSymLinks)) {
        if (!isTemporaryName(name)) {
            continue;
        }
        const QByteArray path = QFile::encodeName(dir.filePath(name));
        const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0) {
            continue;
        }
        // Holding the lock while removing keeps a writer that is just starting from taking the
        // name in between; it sees the name gone and picks another.
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::unlink(path.constData()) == 0) {
            ++removed;
        }
        ::close(fd);
    }
    return removed;
}

#else

int TemporaryFiles::removeStale(const QString& folder) {
    if (folder.isEmpty()) {
        return 0;
    }
    // A file still open for writing cannot be removed here, which keeps live writers safe.
    const QDir dir(folder);
    int removed = 0;
    for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        if (isTemporaryName(name) && QFile::remove(dir.filePath(name))) {
            ++removed;
        }
    }
    return removed;
}

#endif
