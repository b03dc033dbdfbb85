#include "session/NivoGXUtil.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include "contacts/ContactDB.h"
#include "crypto/NivoCryptoOperation.h"
#include "log/ActivityLog.h"
#include "model/AccountName.h"
#include "platform/AtomicFile.h"
#include "platform/QKKeychain.h"

using namespace Qt::Literals::StringLiterals;

const QString NivoGXUtil::kKeychainService = u"NIVO_GX"_s;
const QString NivoGXUtil::kImportContactSignIn = u"Unable to import contact. Please sign in."_s;
const QString NivoGXUtil::kImportContactMappingSignIn =
    u"Unable to import contact mapping. Please sign in."_s;

namespace {

const QString kLastInputFolder = u"lastInputFolder"_s;
const QString kLastOutputEncryptFolder = u"lastOutputEncryptFolder"_s;
const QString kLastOutputDecryptFolder = u"lastOutputDecryptFolder"_s;

constexpr QFileDevice::Permissions kFolderPermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

struct State {
    QString applicationFolder;
    QString pfxFolder;
    QString certificateFolder;
    QString contactsFolder;
    QString logFolder;
    QString pfxPath;
    QString certificatePath;
    QString logPath;
    std::optional<NivoProfile> profile;
    std::optional<ContactDB> contactDB;
};

State& state() {
    static State s;
    return s;
}

QSettings preferences() {
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, u"NIVO-GX"_s, u"NIVO-GX"_s);
}

void computeFolders() {
    State& s = state();
    s.applicationFolder = QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
                              .filePath(u"NIVO-GX"_s);
    const QDir app(s.applicationFolder);
    s.pfxFolder = app.filePath(u"pfx"_s);
    s.certificateFolder = app.filePath(u"cert"_s);
    s.contactsFolder = app.filePath(u"contacts"_s);
    s.logFolder = app.filePath(u"log"_s);
}

const State& folders() {
    if (state().applicationFolder.isEmpty()) {
        computeFolders();
    }
    return state();
}

// Login names are one account whatever their case (the server keeps them lower-cased, sign-in
// keeps them as typed), so the per-user file names must not depend on the case typed: on a
// case-sensitive file system "Dora.pfx" and "dora.pfx" would be two users.
QString fileStem(const QString& userName) {
    return userName.toLower();
}

void computeUserPaths(const QString& userName) {
    State& s = state();
    folders();
    s.pfxPath = QDir(s.pfxFolder).filePath(fileStem(userName) + u".pfx"_s);
    s.certificatePath = QDir(s.certificateFolder).filePath(fileStem(userName) + u".cer"_s);
    s.logPath = QDir(s.logFolder).filePath(fileStem(userName) + u".log"_s);
}

// The user's own folders are private to them; parents are created with the usual defaults.
void createPrivateFolder(const QString& path) {
    if (QFileInfo::exists(path)) {
        return;
    }
    QDir().mkpath(QFileInfo(path).path());
    QDir().mkdir(path, kFolderPermissions);
}

QByteArray readWholeFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Steps shared by the launch test and the quick test: a stored user name and password, and both
// profile files present.
bool credentialsAndFilesPresent() {
    const QString userName = NivoGXUtil::getNivoUsername();
    const QString password = NivoGXUtil::getNivoPassword();
    if (userName.isEmpty() || password.isEmpty()) {
        return false;
    }
    computeUserPaths(userName);
    return QFileInfo::exists(state().pfxPath) && QFileInfo::exists(state().certificatePath);
}

class StoredRunEnvironment final : public RunEnvironment {
public:
    std::optional<NivoProfile> profile() const override { return NivoGXUtil::getNivoProfile(); }
    QString password() const override { return NivoGXUtil::getNivoPassword(); }
    QString userNivoId() const override { return NivoGXUtil::getNivoUsername(); }
    QString outputFolder(bool toEncrypt) const override {
        return toEncrypt ? NivoGXUtil::getLastOutputEncryptFolder()
                         : NivoGXUtil::getLastOutputDecryptFolder();
    }
    void setOutputFolder(bool toEncrypt, const QString& folder) override {
        NivoGXUtil::setLastOutputFolder(toEncrypt, folder);
    }
    std::optional<ContactDB> contacts() const override { return NivoGXUtil::currentContactDB(); }
    void writeToLog(const QString& operationType, const QString& filePath,
                    const QStringList& recipients, const QString& status) override {
        NivoGXUtil::writeToLog(operationType, filePath, recipients, status);
    }
};

}  // namespace

std::shared_ptr<RunEnvironment> NivoGXUtil::runEnvironment() {
    static const auto environment = std::make_shared<StoredRunEnvironment>();
    return environment;
}

bool NivoGXUtil::generateRequiredDirectory() {
    computeFolders();
    const State& s = state();
    for (const QString& folder :
         {s.applicationFolder, s.pfxFolder, s.certificateFolder, s.contactsFolder, s.logFolder}) {
        createPrivateFolder(folder);
    }
    if (!credentialsAndFilesPresent()) {
        return false;
    }
    setNivoProfile();
    return true;
}

void NivoGXUtil::removeStaleTemporaries() {
    computeFolders();
    const State& s = state();
    QStringList folders{s.applicationFolder, s.pfxFolder, s.certificateFolder, s.contactsFolder,
                        s.logFolder};
    folders << getLastOutputEncryptFolder() << getLastOutputDecryptFolder();
    folders.removeDuplicates();
    for (const QString& folder : folders) {
        (void)AtomicFile::removeStaleTemporaries(folder);
    }
}

bool NivoGXUtil::hasRequiredCredentials() {
    return credentialsAndFilesPresent();
}

bool NivoGXUtil::hasKeyFiles() {
    const QString userName = getNivoUsername();
    if (userName.isEmpty()) {
        return false;
    }
    computeUserPaths(userName);
    return QFileInfo::exists(state().pfxPath) && QFileInfo::exists(state().certificatePath);
}

void NivoGXUtil::setNivoProfile() {
    State& s = state();
    NivoProfile profile;
    profile.LoginName = getNivoUsername();
    profile.Cer = readWholeFile(s.certificatePath);
    profile.Pfx = readWholeFile(s.pfxPath);
    s.profile = std::move(profile);
}

bool NivoGXUtil::setNivoProfile(const NivoProfile& profile, QString* error) {
    computeUserPaths(profile.LoginName);
    State& s = state();
    QFile::remove(s.pfxPath);
    QFile::remove(s.certificatePath);
    if (!AtomicFile::write(s.certificatePath, profile.Cer, error) ||
        !AtomicFile::write(s.pfxPath, profile.Pfx, error)) {
        // No half of a key pair stays behind to look like a sign-in at the next launch.
        QFile::remove(s.certificatePath);
        s.profile.reset();
        return false;
    }
    s.profile = profile;
    return true;
}

std::optional<NivoProfile> NivoGXUtil::getNivoProfile() {
    return state().profile;
}

void NivoGXUtil::logout() {
    const QString userName = getNivoUsername();
    saveNivoCredentials(userName, QString());
    State& s = state();
    folders();
    s.pfxPath = QDir(s.pfxFolder).filePath(fileStem(userName) + u".pfx"_s);
    s.certificatePath = QDir(s.certificateFolder).filePath(fileStem(userName) + u".cer"_s);
    QFile::remove(s.pfxPath);
    QFile::remove(s.certificatePath);
    NivoCryptoOperation::forgetOpenedKeys();
}

void NivoGXUtil::saveSettings(const QString& userName, const QString& password,
                              const QString& lastInputFolder,
                              const QString& lastEncryptOutputFolder,
                              const QString& lastDecryptOutputFolder) {
    if (!userName.isEmpty()) {
        saveNivoCredentials(userName, password);
    }
    QSettings settings = preferences();
    const std::pair<const QString&, const QString&> entries[] = {
        {kLastInputFolder, lastInputFolder},
        {kLastOutputEncryptFolder, lastEncryptOutputFolder},
        {kLastOutputDecryptFolder, lastDecryptOutputFolder},
    };
    for (const auto& [key, value] : entries) {
        if (!value.isEmpty()) {
            settings.setValue(key, value);
        }
    }
}

QString NivoGXUtil::getLastInputFolder() {
    return preferences().value(kLastInputFolder).toString();
}

void NivoGXUtil::setLastOutputFolder(bool toEncrypt, const QString& folder) {
    QSettings settings = preferences();
    const QString& key = toEncrypt ? kLastOutputEncryptFolder : kLastOutputDecryptFolder;
    if (folder.isEmpty()) {
        settings.remove(key);
    } else {
        settings.setValue(key, folder);
    }
}

QString NivoGXUtil::getLastOutputEncryptFolder() {
    return preferences().value(kLastOutputEncryptFolder).toString();
}

QString NivoGXUtil::getLastOutputDecryptFolder() {
    return preferences().value(kLastOutputDecryptFolder).toString();
}

void NivoGXUtil::saveNivoCredentials(const QString& loginName, const QString& password) {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        QKKeychainAddGenericEntry(nullptr, kKeychainService);
    }
    QKKeychainSetUserName(nullptr, kKeychainService, loginName);
    QKKeychainSetPassword(nullptr, kKeychainService, password);
}

QString NivoGXUtil::getNivoUsername() {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        return {};
    }
    return QKKeychainGetUserName(nullptr, kKeychainService);
}

QString NivoGXUtil::getNivoPassword() {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        return {};
    }
    return QKKeychainGetPassword(nullptr, kKeychainService);
}

bool NivoGXUtil::NSStringIsValidEmail(const QString& candidate) {
    return AccountName::isValidEmail(candidate);
}

bool NivoGXUtil::IsValidAccount(const QString& candidate) {
    return AccountName::isValidAccount(candidate);
}

QString NivoGXUtil::applicationFolder() { return folders().applicationFolder; }
QString NivoGXUtil::pfxFolder() { return folders().pfxFolder; }
QString NivoGXUtil::certificateFolder() { return folders().certificateFolder; }
QString NivoGXUtil::contactsFolder() { return folders().contactsFolder; }
QString NivoGXUtil::logFolder() { return folders().logFolder; }
QString NivoGXUtil::pfxPath() { return state().pfxPath; }
QString NivoGXUtil::certificatePath() { return state().certificatePath; }
QString NivoGXUtil::logPath() { return state().logPath; }

void NivoGXUtil::resetState() {
    state() = State{};
}

// --- the user's contact database ---

QString NivoGXUtil::contactDBPath(const QString& userName) {
    return QDir(contactsFolder()).filePath(u"Contact_"_s + fileStem(userName) + u".db"_s);
}

void NivoGXUtil::generateUserContactDB(const QString& userName) {
    State& s = state();
    s.contactDB.emplace();
    s.contactDB->initDB(contactDBPath(userName));
}

bool NivoGXUtil::replaceUserContactDB(const QString& userName, const QString& sourcePath,
                                      QString* error) {
    return AtomicFile::copy(sourcePath, contactDBPath(userName), error);
}

void NivoGXUtil::deleteUserContactDB(const QString& userName) {
    QFile::remove(contactDBPath(userName));
}

QList<Contact> NivoGXUtil::getContactList() {
    const auto& db = state().contactDB;
    return db ? db->getContactList() : QList<Contact>();
}

QString NivoGXUtil::getNIVOIDfromCertData(const QByteArray& certData) {
    const auto& db = state().contactDB;
    return db ? db->getNIVOIDfromCertData(certData) : QString();
}

std::optional<ContactDB> NivoGXUtil::currentContactDB() {
    return state().contactDB;
}

qint64 NivoGXUtil::addContact(const Contact& contact) {
    const auto& db = state().contactDB;
    return db ? db->addContact(contact) : 0;
}

void NivoGXUtil::deleteContact(qint64 id) {
    if (const auto& db = state().contactDB) {
        db->deleteContact(id);
    }
}

QList<ContactPreset> NivoGXUtil::GetContactPreset() {
    const auto& db = state().contactDB;
    return db ? db->GetContactPreset() : QList<ContactPreset>();
}

QString NivoGXUtil::saveContactPreset(const ContactPreset& preset) {
    const auto& db = state().contactDB;
    return db ? db->saveContactPreset(preset) : QString();
}

// --- backup and profile files ---

bool NivoGXUtil::exportContacts(const QString& path, QString* error) {
    const auto& db = state().contactDB;
    if (!db) {
        return false;
    }
    // A backup is never written while the profile may still be in the database.
    return db->removeNivoProfile(error) && db->exportDB(path, error);
}

bool NivoGXUtil::exportNivoProfileDB(const QString& path, const NivoProfile& profile,
                                     QString* error) {
    const auto& db = state().contactDB;
    return db && db->addNivoProfile(profile) != -1 && db->exportDB(path, error);
}

QString NivoGXUtil::importContacts(const QString& path, QStringList* skipped) {
    const auto& db = state().contactDB;
    return db ? db->importContactDB(path, getNivoUsername(), skipped) : kImportContactSignIn;
}

QString NivoGXUtil::importContactMapping(const QString& path) {
    const auto& db = state().contactDB;
    if (!db) {
        return kImportContactMappingSignIn;
    }
    db->importContactMappingDB(path);
    return u""_s;
}

// --- the user's activity log ---

void NivoGXUtil::writeToLog(const QString& operationType, const QString& filePath,
                            const QStringList& recipients, const QString& status) {
    // Nobody has signed in yet: there is no log to write to.
    if (logPath().isEmpty()) {
        return;
    }
    ActivityLog(logPath()).writeToLog(operationType, filePath, recipients, status);
}

QList<LogEntry> NivoGXUtil::getLogEntries() {
    return ActivityLog(logPath()).getLogEntries();
}

void NivoGXUtil::viewLog() {
    ActivityLog(logPath()).viewLog();
}

bool NivoGXUtil::exportLogFile(const QString& destinationPath, QString* error) {
    return ActivityLog(logPath()).exportLogFile(destinationPath, error);
}

void NivoGXUtil::clearLogFile() {
    ActivityLog(logPath()).clearLogFile();
}
