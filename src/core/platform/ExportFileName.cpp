#include "platform/ExportFileName.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

const QString ExportFileName::kContactsType = u"cbkm"_s;
const QString ExportFileName::kProfileType = u"vts"_s;
const QString ExportFileName::kLogType = u"log"_s;

namespace {

const QString kStampFormat = u"yyyyMMddHHmmss"_s;

}  // namespace

QString ExportFileName::contactsName(const QString& userName, const QDateTime& now) {
    return u"contacts_%1_%2.%3"_s.arg(userName, now.toString(kStampFormat), kContactsType);
}

QString ExportFileName::profileName(const QString& userName, const QDateTime& now) {
    return u"profile_%1_%2.%3"_s.arg(userName, now.toString(kStampFormat), kProfileType);
}

QString ExportFileName::logName(const QString& userName, const QDateTime& now) {
    return u"%1_%2.%3"_s.arg(userName, now.toString(kStampFormat), kLogType);
}

QString ExportFileName::withType(const QString& path, const QString& type) {
    if (QFileInfo(path).suffix().toLower() == type) {
        return path;
    }
    return path + u'.' + type;
}
