#include "session/UserDataExport.h"

#include "platform/ExportFileName.h"
#include "session/NivoGXUtil.h"

namespace {

const char* const kUnableToExportContact =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export contact. Please sign in.");
const char* const kUnableToExportProfile =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export NIVO Profile. Please sign in.");

const char* const kUnableToExportLog =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export Log file. Log file does not exist.");

// When the copy itself failed: the reason names the file and what the system said.
const char* const kContactsNotWritten =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export contacts. %1");
const char* const kProfileNotWritten =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export NIVO Profile. %1");
const char* const kLogNotWritten =
    QT_TRANSLATE_NOOP("UserDataExport", "Unable to export Log file. %1");

// The text for a refused export: `refusal` when nothing was tried, else why the copy failed.
QString failureText(const QString& error, const char* notWritten, const QString& refusal) {
    return error.isEmpty() ? refusal : UserDataExport::tr(notWritten).arg(error);
}

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
    if (QString error; !NivoGXUtil::exportContacts(result.path, &error)) {
        result.failure = failureText(error, kContactsNotWritten, unableToExportContacts());
    }
    return result;
}

UserDataExport::Result UserDataExport::exportProfile(const QString& chosenPath) {
    Result result;
    result.path = ExportFileName::withType(chosenPath, ExportFileName::kProfileType);
    const auto profile = NivoGXUtil::getNivoProfile();
    if (QString error;
        !profile || !NivoGXUtil::exportNivoProfileDB(result.path, *profile, &error)) {
        result.failure = failureText(error, kProfileNotWritten, unableToExportProfile());
    }
    return result;
}

UserDataExport::Result UserDataExport::exportLog(const QString& chosenPath) {
    Result result;
    result.path = ExportFileName::withType(chosenPath, ExportFileName::kLogType);
    if (QString error; !NivoGXUtil::exportLogFile(result.path, &error)) {
        result.failure = failureText(error, kLogNotWritten, unableToExportLog());
    }
    return result;
}
