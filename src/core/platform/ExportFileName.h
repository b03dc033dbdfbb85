#pragma once

#include <QDateTime>
#include <QString>

// Names of the files the user exports: the suggested name and the extension the saved file
// must carry.
class ExportFileName {
public:
    ExportFileName() = delete;

    static const QString kContactsType;  // "cbkm"
    static const QString kProfileType;   // "vts"
    static const QString kLogType;       // "log"

    // "contacts_<user>_<yyyyMMddHHmmss>.cbkm"
    [[nodiscard]] static QString contactsName(const QString& userName, const QDateTime& now);
    // "profile_<user>_<yyyyMMddHHmmss>.vts"
    [[nodiscard]] static QString profileName(const QString& userName, const QDateTime& now);
    // "<user>_<yyyyMMddHHmmss>.log"
    [[nodiscard]] static QString logName(const QString& userName, const QDateTime& now);
    // The path with ".<type>" appended unless its extension already is the type in any case.
    [[nodiscard]] static QString withType(const QString& path, const QString& type);
};
