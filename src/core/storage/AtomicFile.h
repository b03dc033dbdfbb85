#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

// Writes a whole file so that it appears under its final name only complete: the data goes to a
// temporary file beside it, which is renamed into place at the end.
class AtomicFile {
public:
    static constexpr QFileDevice::Permissions OwnerOnly =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner;

    [[nodiscard]] static bool write(const QString& path, const QByteArray& data,
                                    QFileDevice::Permissions permissions = OwnerOnly);
    // Copies the file at `source` to `path` the same way, replacing any file there only when the
    // copy is complete. False, with `path` untouched, when the source cannot be read.
    [[nodiscard]] static bool copy(const QString& source, const QString& path,
                                   QFileDevice::Permissions permissions = OwnerOnly);
};
