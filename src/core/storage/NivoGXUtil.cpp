#include "storage/NivoGXUtil.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>

#include "storage/AtomicFile.h"
#include "storage/QKKeychain.h"

using namespace Qt::Literals::StringLiterals;

const QString NivoGXUtil::kKeychainService = u"NIVO_GX"_s;

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

void computeUserPaths(const QString& userName) {
    State& s = state();
    folders();
    s.pfxPath = QDir(s.pfxFolder).filePath(userName + u".pfx"_s);
    s.certificatePath = QDir(s.certificateFolder).filePath(userName + u".cer"_s);
    s.logPath = QDir(s.logFolder).filePath(userName + u".log"_s);
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

}  // namespace

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

bool NivoGXUtil::hasRequiredCredentials() {
    return credentialsAndFilesPresent();
}

void NivoGXUtil::setNivoProfile() {
    State& s = state();
    NivoProfile profile;
    profile.LoginName = getNivoUsername();
    profile.Cer = readWholeFile(s.certificatePath);
    profile.Pfx = readWholeFile(s.pfxPath);
    s.profile = std::move(profile);
}

void NivoGXUtil::setNivoProfile(const NivoProfile& profile) {
    computeUserPaths(profile.LoginName);
    State& s = state();
    QFile::remove(s.pfxPath);
    QFile::remove(s.certificatePath);
    // Write failures show up at the next launch as an incomplete sign-in.
    (void)AtomicFile::write(s.certificatePath, profile.Cer);
    (void)AtomicFile::write(s.pfxPath, profile.Pfx);
    s.profile = profile;
}

std::optional<NivoProfile> NivoGXUtil::getNivoProfile() {
    return state().profile;
}

void NivoGXUtil::logout() {
    const QString userName = getNivoUsername();
    saveNivoCredentials(userName, QString());
    State& s = state();
    folders();
    s.pfxPath = QDir(s.pfxFolder).filePath(userName + u".pfx"_s);
    s.certificatePath = QDir(s.certificateFolder).filePath(userName + u".cer"_s);
    QFile::remove(s.pfxPath);
    QFile::remove(s.certificatePath);
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
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(u"^.+@([A-Za-z0-9-]+\\.)+[A-Za-z]{2}[A-Za-z]*$"_s));
    return pattern.match(candidate).hasMatch();
}

bool NivoGXUtil::IsValidAccount(const QString& candidate) {
    if (candidate.isEmpty()) {
        return false;
    }
    static const QRegularExpression pattern(u"^[A-Z0-9a-z._']+$"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern.match(candidate).hasMatch();
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
