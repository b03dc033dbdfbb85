#include "storage/AtomicFile.h"

#include <QFile>
#include <QSaveFile>

bool AtomicFile::write(const QString& path, const QByteArray& data,
                       QFileDevice::Permissions permissions) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    // Restrict the temporary file before any byte lands in it.
    if (!file.setPermissions(permissions) || file.write(data) != data.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

bool AtomicFile::copy(const QString& source, const QString& path,
                      QFileDevice::Permissions permissions) {
    QFile input(source);
    if (!input.open(QIODevice::ReadOnly)) {
        return false;
    }
    QSaveFile output(path);
    if (!output.open(QIODevice::WriteOnly) || !output.setPermissions(permissions)) {
        output.cancelWriting();
        return false;
    }
    constexpr qint64 kBlockSize = 1 << 16;
    while (!input.atEnd()) {
        const QByteArray block = input.read(kBlockSize);
        if (block.isEmpty() || output.write(block) != block.size()) {
            output.cancelWriting();
            return false;
        }
    }
    return output.commit();
}
