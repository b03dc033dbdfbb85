#include "session/NivoGXUtil.h"

#include "model/AccountName.h"
#include "session/Session.h"

const QString& NivoGXUtil::kKeychainService = Session::kKeychainService;
const QString& NivoGXUtil::kImportContactSignIn = Session::kImportContactSignIn;
const QString& NivoGXUtil::kImportContactMappingSignIn = Session::kImportContactMappingSignIn;

namespace {

Session& session() {
    return *Session::current();
}

}  // namespace

bool NivoGXUtil::generateRequiredDirectory() { return session().generateRequiredDirectory(); }
bool NivoGXUtil::hasRequiredCredentials() { return session().hasRequiredCredentials(); }
bool NivoGXUtil::hasKeyFiles() { return session().hasKeyFiles(); }
void NivoGXUtil::setNivoProfile() { session().setNivoProfile(); }
bool NivoGXUtil::setNivoProfile(const NivoProfile& profile, QString* error) {
    return session().setNivoProfile(profile, error);
}
std::optional<NivoProfile> NivoGXUtil::getNivoProfile() { return session().getNivoProfile(); }
void NivoGXUtil::logout() { session().logout(); }
void NivoGXUtil::removeStaleTemporaries() { session().removeStaleTemporaries(); }

void NivoGXUtil::saveSettings(const QString& userName, const QString& password,
                              const QString& lastInputFolder,
                              const QString& lastEncryptOutputFolder,
                              const QString& lastDecryptOutputFolder) {
    session().saveSettings(userName, password, lastInputFolder, lastEncryptOutputFolder,
                           lastDecryptOutputFolder);
}
QString NivoGXUtil::getLastInputFolder() { return session().getLastInputFolder(); }
QString NivoGXUtil::getLastOutputEncryptFolder() { return session().getLastOutputEncryptFolder(); }
QString NivoGXUtil::getLastOutputDecryptFolder() { return session().getLastOutputDecryptFolder(); }
void NivoGXUtil::setLastOutputFolder(bool toEncrypt, const QString& folder) {
    session().setLastOutputFolder(toEncrypt, folder);
}

void NivoGXUtil::saveNivoCredentials(const QString& loginName, const QString& password) {
    session().saveNivoCredentials(loginName, password);
}
QString NivoGXUtil::getNivoUsername() { return session().getNivoUsername(); }
QString NivoGXUtil::getNivoPassword() { return session().getNivoPassword(); }

bool NivoGXUtil::NSStringIsValidEmail(const QString& candidate) {
    return AccountName::isValidEmail(candidate);
}
bool NivoGXUtil::IsValidAccount(const QString& candidate) {
    return AccountName::isValidAccount(candidate);
}

QString NivoGXUtil::applicationFolder() { return session().applicationFolder(); }
QString NivoGXUtil::pfxFolder() { return session().pfxFolder(); }
QString NivoGXUtil::certificateFolder() { return session().certificateFolder(); }
QString NivoGXUtil::contactsFolder() { return session().contactsFolder(); }
QString NivoGXUtil::logFolder() { return session().logFolder(); }
QString NivoGXUtil::pfxPath() { return session().pfxPath(); }
QString NivoGXUtil::certificatePath() { return session().certificatePath(); }
QString NivoGXUtil::logPath() { return session().logPath(); }

void NivoGXUtil::generateUserContactDB(const QString& userName) {
    session().generateUserContactDB(userName);
}
bool NivoGXUtil::replaceUserContactDB(const QString& userName, const QString& sourcePath,
                                      QString* error) {
    return session().replaceUserContactDB(userName, sourcePath, error);
}
void NivoGXUtil::deleteUserContactDB(const QString& userName) {
    session().deleteUserContactDB(userName);
}
QString NivoGXUtil::contactDBPath(const QString& userName) {
    return session().contactDBPath(userName);
}
QList<Contact> NivoGXUtil::getContactList() { return session().getContactList(); }
QString NivoGXUtil::getNIVOIDfromCertData(const QByteArray& certData) {
    return session().getNIVOIDfromCertData(certData);
}
std::optional<ContactDB> NivoGXUtil::currentContactDB() { return session().currentContactDB(); }
qint64 NivoGXUtil::addContact(const Contact& contact) { return session().addContact(contact); }
void NivoGXUtil::deleteContact(qint64 id) { session().deleteContact(id); }
QList<ContactPreset> NivoGXUtil::GetContactPreset() { return session().GetContactPreset(); }
QString NivoGXUtil::saveContactPreset(const ContactPreset& preset) {
    return session().saveContactPreset(preset);
}

bool NivoGXUtil::exportContacts(const QString& path, QString* error) {
    return session().exportContacts(path, error);
}
bool NivoGXUtil::exportNivoProfileDB(const QString& path, const NivoProfile& profile,
                                     QString* error) {
    return session().exportNivoProfileDB(path, profile, error);
}
QString NivoGXUtil::importContacts(const QString& path, QStringList* skipped) {
    return session().importContacts(path, skipped);
}
QString NivoGXUtil::importContactMapping(const QString& path) {
    return session().importContactMapping(path);
}

void NivoGXUtil::writeToLog(const QString& operationType, const QString& filePath,
                            const QStringList& recipients, const QString& status) {
    session().writeToLog(operationType, filePath, recipients, status);
}
QList<LogEntry> NivoGXUtil::getLogEntries() { return session().getLogEntries(); }
void NivoGXUtil::viewLog() { session().viewLog(); }
bool NivoGXUtil::exportLogFile(const QString& destinationPath, QString* error) {
    return session().exportLogFile(destinationPath, error);
}
void NivoGXUtil::clearLogFile() { session().clearLogFile(); }

std::shared_ptr<RunEnvironment> NivoGXUtil::runEnvironment() { return Session::current(); }

void NivoGXUtil::resetState() { Session::makeCurrent(std::make_shared<Session>()); }
