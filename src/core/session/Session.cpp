#include "session/Session.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <QStandardPaths>

#include "contacts/ContactDB.h"
#include "crypto/NivoCryptoOperation.h"
#include "log/ActivityLog.h"
#include "platform/AtomicFile.h"
#include "platform/QKKeychain.h"

using namespace Qt::Literals::StringLiterals;

const QString Session::kKeychainService = u"NIVO_GX"_s;
const QString Session::kImportContactSignIn = u"Unable to import contact. Please sign in."_s;
const QString Session::kImportContactMappingSignIn =
    u"Unable to import contact mapping. Please sign in."_s;

namespace {

const QString kLastInputFolder = u"lastInputFolder"_s;
const QString kLastOutputEncryptFolder = u"lastOutputEncryptFolder"_s;
const QString kLastOutputDecryptFolder = u"lastOutputDecryptFolder"_s;

constexpr QFileDevice::Permissions kFolderPermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

QSettings preferences() {
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, u"NIVO-GX"_s, u"NIVO-GX"_s);
}

// Login names are one account whatever their case (the server keeps them lower-cased, sign-in
// keeps them as typed), so the per-user file names must not depend on the case typed: on a
// case-sensitive file system "Dora.pfx" and "dora.pfx" would be two users.
QString fileStem(const QString& userName) {
    return userName.toLower();
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

std::shared_ptr<Session>& currentSession() {
    static std::shared_ptr<Session> session;
    return session;
}

}  // namespace

const std::shared_ptr<Session>& Session::current() {
    if (!currentSession()) {
        currentSession() = std::make_shared<Session>();
    }
    return currentSession();
}

void Session::makeCurrent(std::shared_ptr<Session> session) {
    currentSession() = std::move(session);
}

void Session::computeFolders() {
    m_folders.applicationFolder =
        QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
            .filePath(u"NIVO-GX"_s);
    const QDir app(m_folders.applicationFolder);
    m_folders.pfxFolder = app.filePath(u"pfx"_s);
    m_folders.certificateFolder = app.filePath(u"cert"_s);
    m_folders.contactsFolder = app.filePath(u"contacts"_s);
    m_folders.logFolder = app.filePath(u"log"_s);
}

const Session::Folders& Session::folders() {
    if (m_folders.applicationFolder.isEmpty()) {
        computeFolders();
    }
    return m_folders;
}

void Session::computeUserPaths(const QString& userName) {
    folders();
    m_pfxPath = QDir(m_folders.pfxFolder).filePath(fileStem(userName) + u".pfx"_s);
    m_certificatePath =
        QDir(m_folders.certificateFolder).filePath(fileStem(userName) + u".cer"_s);
    m_logPath = QDir(m_folders.logFolder).filePath(fileStem(userName) + u".log"_s);
}

// Steps shared by the launch test and the quick test: a stored user name and password, and both
// profile files present.
bool Session::credentialsAndFilesPresent() {
    const QString userName = getNivoUsername();
    const QString password = getNivoPassword();
    if (userName.isEmpty() || password.isEmpty()) {
        return false;
    }
    computeUserPaths(userName);
    return QFileInfo::exists(m_pfxPath) && QFileInfo::exists(m_certificatePath);
}

bool Session::generateRequiredDirectory() {
    computeFolders();
    for (const QString& folder :
         {m_folders.applicationFolder, m_folders.pfxFolder, m_folders.certificateFolder,
          m_folders.contactsFolder, m_folders.logFolder}) {
        createPrivateFolder(folder);
    }
    if (!credentialsAndFilesPresent()) {
        return false;
    }
    setNivoProfile();
    return true;
}

void Session::removeStaleTemporaries() {
    computeFolders();
    QStringList folders{m_folders.applicationFolder, m_folders.pfxFolder,
                        m_folders.certificateFolder, m_folders.contactsFolder, m_folders.logFolder};
    folders << getLastOutputEncryptFolder() << getLastOutputDecryptFolder();
    folders.removeDuplicates();
    for (const QString& folder : folders) {
        (void)AtomicFile::removeStaleTemporaries(folder);
    }
}

bool Session::hasRequiredCredentials() {
    return credentialsAndFilesPresent();
}

bool Session::hasKeyFiles() {
    const QString userName = getNivoUsername();
    if (userName.isEmpty()) {
        return false;
    }
    computeUserPaths(userName);
    return QFileInfo::exists(m_pfxPath) && QFileInfo::exists(m_certificatePath);
}

void Session::setNivoProfile() {
    NivoProfile profile;
    profile.LoginName = getNivoUsername();
    profile.Cer = readWholeFile(m_certificatePath);
    profile.Pfx = readWholeFile(m_pfxPath);
    m_profile = std::move(profile);
}

bool Session::setNivoProfile(const NivoProfile& profile, QString* error) {
    computeUserPaths(profile.LoginName);
    QFile::remove(m_pfxPath);
    QFile::remove(m_certificatePath);
    if (!AtomicFile::write(m_certificatePath, profile.Cer, error) ||
        !AtomicFile::write(m_pfxPath, profile.Pfx, error)) {
        // No half of a key pair stays behind to look like a sign-in at the next launch.
        QFile::remove(m_certificatePath);
        m_profile.reset();
        return false;
    }
    m_profile = profile;
    return true;
}

void Session::logout() {
    const QString userName = getNivoUsername();
    saveNivoCredentials(userName, QString());
    folders();
    m_pfxPath = QDir(m_folders.pfxFolder).filePath(fileStem(userName) + u".pfx"_s);
    m_certificatePath = QDir(m_folders.certificateFolder).filePath(fileStem(userName) + u".cer"_s);
    QFile::remove(m_pfxPath);
    QFile::remove(m_certificatePath);
    NivoCryptoOperation::forgetOpenedKeys();
}

void Session::saveSettings(const QString& userName, const QString& password,
                           const QString& lastInputFolder, const QString& lastEncryptOutputFolder,
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

QString Session::getLastInputFolder() const {
    return preferences().value(kLastInputFolder).toString();
}

void Session::setLastOutputFolder(bool toEncrypt, const QString& folder) {
    QSettings settings = preferences();
    const QString& key = toEncrypt ? kLastOutputEncryptFolder : kLastOutputDecryptFolder;
    if (folder.isEmpty()) {
        settings.remove(key);
    } else {
        settings.setValue(key, folder);
    }
}

QString Session::getLastOutputEncryptFolder() const {
    return preferences().value(kLastOutputEncryptFolder).toString();
}

QString Session::getLastOutputDecryptFolder() const {
    return preferences().value(kLastOutputDecryptFolder).toString();
}

QString Session::outputFolder(bool toEncrypt) const {
    return toEncrypt ? getLastOutputEncryptFolder() : getLastOutputDecryptFolder();
}

void Session::setOutputFolder(bool toEncrypt, const QString& folder) {
    setLastOutputFolder(toEncrypt, folder);
}

void Session::saveNivoCredentials(const QString& loginName, const QString& password) {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        QKKeychainAddGenericEntry(nullptr, kKeychainService);
    }
    QKKeychainSetUserName(nullptr, kKeychainService, loginName);
    QKKeychainSetPassword(nullptr, kKeychainService, password);
}

QString Session::getNivoUsername() const {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        return {};
    }
    return QKKeychainGetUserName(nullptr, kKeychainService);
}

QString Session::getNivoPassword() const {
    if (!QKKeychainDoesGenericEntryExist(nullptr, kKeychainService)) {
        return {};
    }
    return QKKeychainGetPassword(nullptr, kKeychainService);
}

// --- the user's contact database ---

QString Session::contactDBPath(const QString& userName) {
    return QDir(contactsFolder()).filePath(u"Contact_"_s + fileStem(userName) + u".db"_s);
}

void Session::generateUserContactDB(const QString& userName) {
    m_contactDB.emplace();
    m_contactDB->initDB(contactDBPath(userName));
}

bool Session::replaceUserContactDB(const QString& userName, const QString& sourcePath,
                                   QString* error) {
    return AtomicFile::copy(sourcePath, contactDBPath(userName), error);
}

void Session::deleteUserContactDB(const QString& userName) {
    QFile::remove(contactDBPath(userName));
}

QList<Contact> Session::getContactList() const {
    const auto& db = m_contactDB;
    return db ? db->getContactList() : QList<Contact>();
}

QString Session::getNIVOIDfromCertData(const QByteArray& certData) const {
    const auto& db = m_contactDB;
    return db ? db->getNIVOIDfromCertData(certData) : QString();
}

qint64 Session::addContact(const Contact& contact) {
    const auto& db = m_contactDB;
    return db ? db->addContact(contact) : 0;
}

void Session::deleteContact(qint64 id) {
    if (const auto& db = m_contactDB) {
        db->deleteContact(id);
    }
}

QList<ContactPreset> Session::GetContactPreset() const {
    const auto& db = m_contactDB;
    return db ? db->GetContactPreset() : QList<ContactPreset>();
}

QString Session::saveContactPreset(const ContactPreset& preset) {
    const auto& db = m_contactDB;
    return db ? db->saveContactPreset(preset) : QString();
}

// --- backup and profile files ---

bool Session::exportContacts(const QString& path, QString* error) {
    const auto& db = m_contactDB;
    if (!db) {
        return false;
    }
    // A backup is never written while the profile may still be in the database.
    return db->removeNivoProfile(error) && db->exportDB(path, error);
}

bool Session::exportNivoProfileDB(const QString& path, const NivoProfile& profile, QString* error) {
    const auto& db = m_contactDB;
    return db && db->addNivoProfile(profile) != -1 && db->exportDB(path, error);
}

QString Session::importContacts(const QString& path, QStringList* skipped) {
    const auto& db = m_contactDB;
    return db ? db->importContactDB(path, getNivoUsername(), skipped) : kImportContactSignIn;
}

QString Session::importContactMapping(const QString& path) {
    const auto& db = m_contactDB;
    if (!db) {
        return kImportContactMappingSignIn;
    }
    db->importContactMappingDB(path);
    return u""_s;
}

// --- the user's activity log ---

void Session::writeToLog(const QString& operationType, const QString& filePath,
                         const QStringList& recipients, const QString& status) {
    // Nobody has signed in yet: there is no log to write to.
    if (logPath().isEmpty()) {
        return;
    }
    ActivityLog(logPath()).writeToLog(operationType, filePath, recipients, status);
}

QList<LogEntry> Session::getLogEntries() const {
    return ActivityLog(logPath()).getLogEntries();
}

void Session::viewLog() const {
    ActivityLog(logPath()).viewLog();
}

bool Session::exportLogFile(const QString& destinationPath, QString* error) const {
    return ActivityLog(logPath()).exportLogFile(destinationPath, error);
}

void Session::clearLogFile() const {
    ActivityLog(logPath()).clearLogFile();
}
