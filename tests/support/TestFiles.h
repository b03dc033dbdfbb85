#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QString>

// Whole files read, written and fingerprinted in one call.

// The file's bytes; empty when it cannot be read.
inline QByteArray fileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// SHA-256 of the file's bytes, to tell whether it changed; empty when it cannot be read.
inline QByteArray fileDigest(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return hash.result();
}

// Creates or replaces the file with `bytes`; false when that fails.
[[nodiscard]] inline bool putFile(const QString& path, const QByteArray& bytes = {}) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}
