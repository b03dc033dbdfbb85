#include "storage/UserDataExport.h"

#include "storage/ExportFileName.h"
#include "storage/NivoGXUtil.h"

namespace {

const char* const kUnableToExportContact =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export contact. Please sign in.");
const char* const kUnableToExportProfile =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export NIVO Profile. Please sign in.");

const char* const kUnableToExportLog =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export Log file. Log file does not exist.");

}  // namespace

QString UserDataExport::unableToExportContacts() {
    return tr(kUnableToExportContact);
}
QString UserDataExport::unableToExportProfile() {
    return tr(kUnableToExportProfile);
}

QString UserDataExport::unableToExportLog() {
    return tr(kUnableToExportLog);
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

UserDataExport::Result UserDataExport::exportLog(const QString& chosenPath) {
    Result result;
    result.path = ExportFileName::withType(chosenPath, ExportFileName::kLogType);
    if (!NivoGXUtil::exportLogFile(result.path)) {
        result.failure = unableToExportLog();
    }
    return result;
}
