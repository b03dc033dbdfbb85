#include "storage/UserDataExport.h"

#include "storage/ExportFileName.h"
#include "storage/NivoGXUtil.h"

namespace {

const char* const kUnableToExportContact =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export contact. Please sign in.");
const char* const kUnableToExportProfile =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export NIVO Profile. Please sign in.");

}  // namespace

QString UserDataExport::unableToExportContacts() {
    return tr(kUnableToExportContact);
}
QString UserDataExport::unableToExportProfile() {
    return tr(kUnableToExportProfile);
}

UserDataExport::Result UserDataExport::exportContacts(const QString& chosenPath) {
    Result result;
    result.path = ExportFileName::withType(chosenPath, ExportFileName::kContactsType);
    if (!NivoGXUtil::exportContacts(result.path)) {
        result.failure = unableToExportContacts();
    }
    return result;
}

UserDataExport::Result UserDataExport::exportProfile(const QString& chosenPath) {
    Result result;
    result.path = ExportFileName::withType(chosenPath, ExportFileName::kProfileType);
    const auto profile = NivoGXUtil::getNivoProfile();
    if (!profile || !NivoGXUtil::exportNivoProfileDB(result.path, *profile)) {
        result.failure = unableToExportProfile();
    }
    return result;
}
