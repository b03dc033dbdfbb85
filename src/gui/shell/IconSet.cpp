#include "shell/IconSet.h"

#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

const QString IconSet::kEncrypt = u"encrypt"_s;
const QString IconSet::kEncryptGrey = u"encrypt_grey"_s;
const QString IconSet::kDecrypt = u"decrypt"_s;
const QString IconSet::kDecryptGrey = u"decrypt_grey"_s;
const QString IconSet::kApplication = u"nivogx"_s;
const QString IconSet::kAddFiles = u"add_files"_s;
const QString IconSet::kExportProfile = u"export_profile"_s;
const QString IconSet::kSignOut = u"sign_out"_s;
const QString IconSet::kSearch = u"search"_s;
const QString IconSet::kAddRecipient = u"add_recipient"_s;

QString IconSet::resourcePath(const QString& name) {
    return u":/icons/"_s + name + u".svg"_s;
}

QIcon IconSet::named(const QString& name) {
    const QString path = resourcePath(name);
    // A name outside the set gives no image rather than an icon that draws nothing.
    if (name.isEmpty() || !QFileInfo::exists(path)) {
        return {};
    }
    return QIcon(path);
}
