// The profile file: export from a signed-in session, then the checks of the offline sign-in,
// with a real key file and the real certificate extraction.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

#include "TestPki.h"
#include "UserSandbox.h"
#include "account/NivoProfileAdmin.h"
#include "account/NivoProfileUtil.h"
#include "contacts/ContactDB.h"
#include "storage/NivoGXUtil.h"
#include "storage/ExportFileName.h"

namespace {

NivoProfile importFile(const QString& path, const QString& user, const QString& password) {
    return ContactDB::importProfileDB(path, user, password,
                                      [](const QByteArray& pfx, const QString& pw) {
                                          return NivoProfileUtil::extractCerFromPfx(pfx, pw)
                                              .value_or(QByteArray());
                                      });
}

class ProfileFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(NivoGXUtil::generateRequiredDirectory());
        alice = pki.createUser(QStringLiteral("alice"));
        profile = TestPki::profileFor(alice, QStringLiteral("alice"));
        NivoGXUtil::saveNivoCredentials(QStringLiteral("Alice"), TestPki::kPassword);
        NivoGXUtil::setNivoProfile(profile);
        NivoGXUtil::generateUserContactDB(QStringLiteral("Alice"));
    }

    QString target(const char* name) const {
        return QDir(sandbox.root()).filePath(QString::fromLatin1(name));
    }

    UserSandbox sandbox;
    TestPki pki;
    TestPki::Identity alice;
    NivoProfile profile;
};

TEST_F(ProfileFileTest, ExportedFileSignsInWithAnyCaseOfTheNameAndTheRightPassword) {
    const QString path = ExportFileName::withType(target("profile.txt"), ExportFileName::kProfileType);
    EXPECT_EQ(QFileInfo(path).fileName(), QStringLiteral("profile.txt.vts"));
    ASSERT_TRUE(NivoGXUtil::exportNivoProfileDB(path, profile));
    ASSERT_TRUE(NivoGXUtil::exportNivoProfileDB(path, profile)) << "a second export replaces";

    for (const char* typed : {"alice", "ALICE", "Alice"}) {
        const NivoProfile signedIn = importFile(path, QString::fromLatin1(typed), TestPki::kPassword);
        EXPECT_EQ(signedIn.StatusText, QString()) << typed;
        EXPECT_EQ(signedIn.LoginName, QStringLiteral("alice"));
        EXPECT_EQ(signedIn.Pfx, profile.Pfx);
        EXPECT_EQ(signedIn.Cer, alice.certDer);
    }
    EXPECT_EQ(importFile(path, QStringLiteral("alice"), QStringLiteral("not it")).StatusText,
              QStringLiteral("Invalid password"));
    EXPECT_EQ(importFile(path, QStringLiteral("bob"), TestPki::kPassword).StatusText,
              QStringLiteral("Invalid Username"));
}

TEST_F(ProfileFileTest, FilesThatAreNotProfilesAreRefused) {
    const QString empty = target("empty.vts");
    QFile(empty).open(QIODevice::WriteOnly);
    EXPECT_EQ(importFile(empty, QStringLiteral("alice"), TestPki::kPassword).StatusText,
              QStringLiteral("Unable to retrieve NIVO Profile from file."));

    // A contact backup is the same database without the profile row.
    const QString backup = ExportFileName::withType(target("contacts"), ExportFileName::kContactsType);
    ASSERT_TRUE(NivoGXUtil::exportContacts(backup));
    EXPECT_EQ(importFile(backup, QStringLiteral("alice"), TestPki::kPassword).StatusText,
              QStringLiteral("Unable to retrieve NIVO Profile from file."));
}

TEST_F(ProfileFileTest, LocalPasswordCheckOpensTheKeyFile) {
    EXPECT_TRUE(NivoProfileAdmin::localLoginWithLoginName(QString(), TestPki::kPassword, profile.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(QStringLiteral("alice"), QStringLiteral("x"),
                                                           profile.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(QStringLiteral("alice"), TestPki::kPassword,
                                                           QByteArray("not a key file")));
}

}  // namespace
