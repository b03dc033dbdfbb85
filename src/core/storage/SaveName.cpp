#include "storage/SaveName.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace {
QString stamp(const QDateTime& at) {
    return at.toString(u"yyyyMMddHHmmss"_s);
}
}  // namespace

QString SaveName::withExtension(const QString& path, const QString& type) {
    if (QFileInfo(path).suffix().toLower() == type) {
        return path;
    }
    return path + u'.' + type;
}

QString SaveName::contactsBackup(const QString& user, const QDateTime& at) {
    return u"contacts_%1_%2.cbkm"_s.arg(user, stamp(at));
}

QString SaveName::profileFile(const QString& user, const QDateTime& at) {
    return u"profile_%1_%2.vts"_s.arg(user, stamp(at));
}
