#pragma once

#include <QDateTime>
#include <QString>

// Names offered and enforced by the save panels of the exports.
class SaveName {
public:
    SaveName() = delete;

    static inline const QString kContactsType = QStringLiteral("cbkm");
    static inline const QString kProfileType = QStringLiteral("vts");

    // The path with ".type" appended unless its extension, ignoring case, already is the type:
    // "x.CBKM" stays, "x" and "x.txt" get ".cbkm".
    [[nodiscard]] static QString withExtension(const QString& path, const QString& type);
    // "contacts_<user>_<yyyyMMddHHmmss>.cbkm"
    [[nodiscard]] static QString contactsBackup(const QString& user, const QDateTime& at);
    // "profile_<user>_<yyyyMMddHHmmss>.vts"
    [[nodiscard]] static QString profileFile(const QString& user, const QDateTime& at);
};
