// The folder tree, the profile files, the sign-in test at launch, sign-out and the remembered
// folders, each in a private user sandbox.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include "TestFiles.h"
#include "UserSandbox.h"
#include "session/NivoGXUtil.h"
#include "session/SignIn.h"

namespace {

constexpr auto kOwnerOnlyFolder = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                  QFileDevice::ExeOwner | QFileDevice::ReadUser |
                                  QFileDevice::WriteUser | QFileDevice::ExeUser;
constexpr auto kOwnerOnlyFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                QFileDevice::ReadUser | QFileDevice::WriteUser;

NivoProfile profileFor(const QString& name) {
    NivoProfile p;
    p.LoginName = name;
    p.StatusText = QStringLiteral("");
    p.SyncDate = QStringLiteral("2026-11-22");
    p.SyncTime = QStringLiteral("09:15:00");
    p.Pfx = "PFX of " + name.toUtf8();
    p.Cer = "CER of " + name.toUtf8();
    return p;
}

class FoldersAndSignInTest : public ::testing::Test {
protected:
    // A launch that finds nobody, then what a successful online sign-in leaves behind.
    void signIn(const QString& name, const QString& password) {
        ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
        NivoGXUtil::saveNivoCredentials(name, password);
        ASSERT_TRUE(NivoGXUtil::setNivoProfile(profileFor(name)));
    }

    QString appFolder() const { return QDir(sandbox.dataHome()).filePath(QStringLiteral("NIVO-GX")); }

    UserSandbox sandbox;
};

TEST_F(FoldersAndSignInTest, FirstLaunchCreatesPrivateFoldersAndIsNotSignedIn) {
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
    EXPECT_EQ(NivoGXUtil::applicationFolder(), appFolder());
    for (const char* sub : {"", "pfx", "cert", "contacts", "log"}) {
        const QFileInfo info(QDir(appFolder()).filePath(QString::fromLatin1(sub)));
        EXPECT_TRUE(info.isDir()) << sub;
        EXPECT_EQ(info.permissions(), kOwnerOnlyFolder) << sub;
    }
    EXPECT_TRUE(NivoGXUtil::getLastInputFolder().isNull());
    EXPECT_TRUE(NivoGXUtil::getLastOutputEncryptFolder().isNull());
    EXPECT_TRUE(NivoGXUtil::getLastOutputDecryptFolder().isNull());
    EXPECT_FALSE(NivoGXUtil::getNivoProfile().has_value());
    EXPECT_TRUE(NivoGXUtil::pfxPath().isEmpty());

    // A second launch leaves existing folders alone.
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
}

TEST_F(FoldersAndSignInTest, CompleteSignInIsFoundAtTheNextLaunchAndLoadsTheProfile) {
    signIn(QStringLiteral("Alice.Smith"), QStringLiteral("pw"));
    const QString pfx = QDir(appFolder()).filePath(QStringLiteral("pfx/alice.smith.pfx"));
    const QString cer = QDir(appFolder()).filePath(QStringLiteral("cert/alice.smith.cer"));
    EXPECT_EQ(fileBytes(pfx), QByteArray("PFX of Alice.Smith"));
    EXPECT_EQ(fileBytes(cer), QByteArray("CER of Alice.Smith"));
    EXPECT_EQ(QFileInfo(pfx).permissions(), kOwnerOnlyFile);
    EXPECT_EQ(QFileInfo(cer).permissions(), kOwnerOnlyFile);
    EXPECT_EQ(NivoGXUtil::getNivoProfile(), profileFor(QStringLiteral("Alice.Smith")));

    // Next launch: a new process knows nothing but the disk and the keychain.
    NivoGXUtil::resetState();
    EXPECT_TRUE(NivoGXUtil::hasRequiredCredentials());
    EXPECT_FALSE(NivoGXUtil::getNivoProfile().has_value()) << "the quick test loads nothing";
    ASSERT_TRUE(NivoGXUtil::generateRequiredDirectory());
    const auto loaded = NivoGXUtil::getNivoProfile();
    ASSERT_TRUE(loaded.has_value());
    EXPECT_EQ(loaded->LoginName, QStringLiteral("Alice.Smith"));
    EXPECT_EQ(loaded->Pfx, QByteArray("PFX of Alice.Smith"));
    EXPECT_EQ(loaded->Cer, QByteArray("CER of Alice.Smith"));
    EXPECT_EQ(NivoGXUtil::logPath(), QDir(appFolder()).filePath(QStringLiteral("log/alice.smith.log")));
}

TEST_F(FoldersAndSignInTest, NameTypedWithCapitalsFindsTheFilesOfTheServersLowerCaseName) {
    // The server answers with the lower-cased name; the credentials keep the name as typed.
    NivoGXUtil::saveNivoCredentials(QStringLiteral("Dora"), QStringLiteral("pw"));
    ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
    ASSERT_TRUE(NivoGXUtil::setNivoProfile(profileFor(QStringLiteral("dora"))));
    NivoGXUtil::resetState();
    ASSERT_TRUE(NivoGXUtil::generateRequiredDirectory());
    EXPECT_EQ(NivoGXUtil::getNivoProfile()->Pfx, QByteArray("PFX of dora"));
    EXPECT_EQ(NivoGXUtil::contactDBPath(QStringLiteral("Dora")),
              NivoGXUtil::contactDBPath(QStringLiteral("dora")));
    NivoGXUtil::logout();
    EXPECT_FALSE(QFileInfo::exists(QDir(appFolder()).filePath(QStringLiteral("pfx/dora.pfx"))));
}

TEST_F(FoldersAndSignInTest, MissingProfileFileMeansSignInAgain) {
    for (const char* missing : {"cert/alice.cer", "pfx/alice.pfx"}) {
        ASSERT_NO_FATAL_FAILURE(signIn(QStringLiteral("alice"), QStringLiteral("pw")));
        ASSERT_TRUE(NivoGXUtil::generateRequiredDirectory());
        ASSERT_TRUE(QFile::remove(QDir(appFolder()).filePath(QString::fromLatin1(missing))));
        EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory()) << missing;
        EXPECT_FALSE(NivoGXUtil::hasRequiredCredentials()) << missing;
    }
}

TEST_F(FoldersAndSignInTest, EmptyPasswordIsNotSignedInAndLeavesThePathsAlone) {
    signIn(QStringLiteral("alice"), QStringLiteral("pw"));
    const QString alicePfx = NivoGXUtil::pfxPath();
    NivoGXUtil::saveNivoCredentials(QStringLiteral("bob"), QString());
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
    EXPECT_EQ(NivoGXUtil::pfxPath(), alicePfx);
    EXPECT_TRUE(NivoGXUtil::logPath().endsWith(QStringLiteral("/alice.log")));
}

TEST_F(FoldersAndSignInTest, NewProfileReplacesTheOldFiles) {
    signIn(QStringLiteral("alice"), QStringLiteral("pw"));
    NivoProfile renewed = profileFor(QStringLiteral("alice"));
    renewed.Pfx = "new";  // shorter than before: nothing of the old file may remain
    renewed.Cer = "c";
    ASSERT_TRUE(NivoGXUtil::setNivoProfile(renewed));
    EXPECT_EQ(fileBytes(NivoGXUtil::pfxPath()), QByteArray("new"));
    EXPECT_EQ(fileBytes(NivoGXUtil::certificatePath()), QByteArray("c"));
    EXPECT_EQ(QDir(QFileInfo(NivoGXUtil::pfxPath()).path()).entryList(QDir::Files),
              QStringList{QStringLiteral("alice.pfx")});
}

TEST_F(FoldersAndSignInTest, KeyFilesThatCannotBeWrittenFailTheSignInAndKeepNothing) {
    ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
    const QString pfxFolder = QDir(appFolder()).filePath(QStringLiteral("pfx"));
    ASSERT_TRUE(QDir(pfxFolder).removeRecursively());
    ASSERT_TRUE(putFile(pfxFolder, "a file where the folder should be"));

    const auto alert = SignIn::keep(QStringLiteral("alice"), QStringLiteral("pw"),
                                    profileFor(QStringLiteral("alice")));
    ASSERT_TRUE(alert.has_value());
    EXPECT_EQ(alert->message, QStringLiteral("Sign in Failed"));
    EXPECT_EQ(alert->informativeText, QStringLiteral("Your key files could not be saved. The "
                                                     "folder %1 does not exist.")
                                          .arg(pfxFolder));
    EXPECT_FALSE(NivoGXUtil::getNivoProfile().has_value());
    EXPECT_TRUE(NivoGXUtil::getNivoPassword().isEmpty());
    EXPECT_FALSE(QFileInfo::exists(NivoGXUtil::certificatePath())) << "no half of the pair";
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
}

TEST_F(FoldersAndSignInTest, SignOutDeletesOnlyTheKeyMaterial) {
    signIn(QStringLiteral("alice"), QStringLiteral("pw"));
    ASSERT_TRUE(NivoGXUtil::generateRequiredDirectory());
    NivoGXUtil::saveSettings(QString(), QString(), QStringLiteral("/in"), QString(), QString());
    const QString logFile = NivoGXUtil::logPath();
    const QString dbFile = QDir(appFolder()).filePath(QStringLiteral("contacts/Contact_alice.db"));
    for (const QString& path : {logFile, dbFile}) {
        ASSERT_TRUE(putFile(path, "kept"));
    }

    NivoGXUtil::logout();

    EXPECT_FALSE(QFileInfo::exists(NivoGXUtil::pfxPath()));
    EXPECT_FALSE(QFileInfo::exists(NivoGXUtil::certificatePath()));
    EXPECT_EQ(fileBytes(logFile), QByteArray("kept"));
    EXPECT_EQ(fileBytes(dbFile), QByteArray("kept"));
    EXPECT_EQ(NivoGXUtil::getLastInputFolder(), QStringLiteral("/in"));
    EXPECT_TRUE(NivoGXUtil::getNivoProfile().has_value()) << "memory stays until the app quits";
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("alice"));

    NivoGXUtil::resetState();
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
}

TEST_F(FoldersAndSignInTest, SaveSettingsAppliesOnlyWhatIsGiven) {
    NivoGXUtil::saveSettings(QStringLiteral("alice"), QStringLiteral("pw"), QStringLiteral("/in"),
                             QStringLiteral("/enc"), QStringLiteral("/dec"));
    NivoGXUtil::saveSettings(QString(), QStringLiteral("ignored"), QString(),
                             QStringLiteral("/enc2"), QString());
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("alice"));
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), QStringLiteral("pw"));
    EXPECT_EQ(NivoGXUtil::getLastInputFolder(), QStringLiteral("/in"));
    EXPECT_EQ(NivoGXUtil::getLastOutputEncryptFolder(), QStringLiteral("/enc2"));
    EXPECT_EQ(NivoGXUtil::getLastOutputDecryptFolder(), QStringLiteral("/dec"));

    // The folders are kept in the per-user preferences file under the keys as named.
    const QSettings file(QDir(sandbox.configHome()).filePath(QStringLiteral("NIVO-GX/NIVO-GX.conf")),
                         QSettings::IniFormat);
    EXPECT_EQ(file.value(QStringLiteral("lastOutputEncryptFolder")).toString(),
              QStringLiteral("/enc2"));
}

TEST_F(FoldersAndSignInTest, LoadingFromDiskToleratesMissingFiles) {
    NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), QStringLiteral("pw"));
    ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
    NivoGXUtil::setNivoProfile();
    const auto profile = NivoGXUtil::getNivoProfile();
    ASSERT_TRUE(profile.has_value());
    EXPECT_EQ(profile->LoginName, QStringLiteral("alice"));
    EXPECT_TRUE(profile->Pfx.isEmpty());
    EXPECT_FALSE(profile->isUsable());
}

}  // namespace
