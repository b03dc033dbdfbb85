#include "storage/AtomicFile.h"

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
