#include "server/PrivateFiles.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QFileDevice::Permissions kGroupAccess =
    QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup;
constexpr QFileDevice::Permissions kWorldAccess =
    QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;

}  // namespace

QString PrivateFiles::makePrivateFolder(const QString& path) {
    if (!QFileInfo::exists(path)) {
        if (!QDir().mkpath(path) ||
            !QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                             QFileDevice::ExeOwner)) {
            return u"cannot create the folder %1"_s.arg(path);
        }
    }
    if (!QFileInfo(path).isDir()) {
        return u"%1 is not a folder"_s.arg(path);
    }
    return checkPrivate(path);
}

QString PrivateFiles::checkPrivate(const QString& path, Others others) {
    const QFileInfo info(path);
    if (!info.exists()) {
        return {};
    }
    const QFileDevice::Permissions refused =
        others == Others::NoAccess ? kGroupAccess | kWorldAccess : kWorldAccess;
    if ((info.permissions() & refused) == 0) {
        return {};
    }
    const QString mode = info.isDir() ? (others == Others::NoAccess ? u"700"_s : u"750"_s)
                                      : (others == Others::NoAccess ? u"600"_s : u"640"_s);
    return u"%1 can be read by %2; it holds secrets. Fix it with: chmod %3 '%1'"_s.arg(
        path, others == Others::NoAccess ? u"other users"_s : u"every user"_s, mode);
}
