// The signed-in user's contact data through NivoGXUtil: the per-user database, backups that
// never carry the profile, imports that only read their file and skip the user's own account,
// and the quiet refusals when nobody is signed in.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <algorithm>

#include "SqliteShell.h"
#include "TestFiles.h"
#include "TestPki.h"
#include "UserSandbox.h"
#include "contacts/ContactDB.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"
#include "session/UserDataExport.h"
#include "sqlite/SqliteDatabase.h"

using namespace Qt::Literals::StringLiterals;

namespace {

Contact contact(const QString& nivoID, const QString& displayName, const QByteArray& cert) {
    return {0, nivoID, displayName, cert};
}

class UserContactDataTest : public ::testing::Test {
protected:
    void SetUp() override { sandbox.setUpUser(QStringLiteral("Alice")); }

    QString livePath() const { return NivoGXUtil::contactDBPath(QStringLiteral("Alice")); }
    QString file(const QString& name) const { return QDir(sandbox.root()).filePath(name); }

    // Another database file, as a backup from elsewhere would be.
    QString backupWith(const QString& name, const QList<Contact>& contacts,
                       const QList<ContactPreset>& presets = {}) const {
        ContactDB other;
        other.initDB(file(name));
        for (const Contact& c : contacts) {
            other.addContact(c);
        }
        for (const ContactPreset& p : presets) {
            other.saveContactPreset(p);
        }
        return other.defaultDBPath();
    }

    QStringList liveRows() const {
        return sqliteShell(livePath(), QStringLiteral("select ID, NivoID, DisplayName, hex(CertData) "
                                                      "from CONTACT order by ID"));
    }

    UserSandbox sandbox;
};

TEST_F(UserContactDataTest, TheUsersDatabaseFileCanBeReplacedAndDeleted) {
    EXPECT_EQ(livePath(),
              QDir(NivoGXUtil::contactsFolder()).filePath(QStringLiteral("Contact_alice.db")));
    NivoGXUtil::addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"), "B"));
    const QString other = backupWith(QStringLiteral("other.db"),
                                     {contact(QStringLiteral("carol"), QStringLiteral("C"), "C")});
    ASSERT_TRUE(NivoGXUtil::replaceUserContactDB(QStringLiteral("Alice"), other));
    // The current database keeps its path and so sees the new file.
    EXPECT_EQ(NivoGXUtil::getNIVOIDfromCertData("C"), QStringLiteral("carol"));
    EXPECT_EQ(NivoGXUtil::getNIVOIDfromCertData("B"), QStringLiteral(""));
    NivoGXUtil::deleteUserContactDB(QStringLiteral("Alice"));
    EXPECT_FALSE(QFile::exists(livePath()));
}

TEST_F(UserContactDataTest, WithoutASignedInUserEverythingIsRefusedQuietly) {
    NivoGXUtil::addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"), "B"));
    NivoGXUtil::resetState();  // a new process before sign-in
    const QString backup = file(QStringLiteral("b.cbkm"));

    EXPECT_EQ(NivoGXUtil::importContacts(backup),
              QStringLiteral("Unable to import contact. Please sign in."));
    EXPECT_EQ(NivoGXUtil::importContactMapping(backup),
              QStringLiteral("Unable to import contact mapping. Please sign in."));
    EXPECT_FALSE(NivoGXUtil::exportContacts(backup));
    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    profile.Pfx = "PFX";
    EXPECT_FALSE(NivoGXUtil::exportNivoProfileDB(backup, profile));
    EXPECT_FALSE(QFile::exists(backup));

    EXPECT_TRUE(NivoGXUtil::getContactList().isEmpty());
    EXPECT_EQ(NivoGXUtil::addContact(contact(QStringLiteral("x"), QStringLiteral("X"), "X")), 0);
    NivoGXUtil::deleteContact(1);
    EXPECT_EQ(sqliteCount(livePath(), QStringLiteral("CONTACT")), 1);  // the file is untouched
}

TEST_F(UserContactDataTest, ABackupNeverHoldsTheProfileAndTheLiveDatabaseLosesIt) {
    NivoGXUtil::addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"), "B"));
    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    profile.Pfx = "PFX";
    const QString profileFile = file(QStringLiteral("profile.vts"));
    ASSERT_TRUE(NivoGXUtil::exportNivoProfileDB(profileFile, profile));
    EXPECT_EQ(sqliteShell(profileFile, QStringLiteral("select UserNivoID from NIVOPROFILE")),
              QStringList{QStringLiteral("alice")});
    EXPECT_EQ(sqliteCount(profileFile, QStringLiteral("CONTACT")), 1);

    const QString backup = file(QStringLiteral("contacts.cbkm"));
    ASSERT_TRUE(putFile(backup, "an earlier file under the same name"));
    ASSERT_TRUE(NivoGXUtil::exportContacts(backup));
    EXPECT_EQ(sqliteCount(backup, QStringLiteral("NIVOPROFILE")), 0);
    EXPECT_EQ(sqliteCount(livePath(), QStringLiteral("NIVOPROFILE")), 0);
    EXPECT_EQ(sqliteShell(backup, QStringLiteral("select NivoID from CONTACT")),
              QStringList{QStringLiteral("bob")});
    EXPECT_EQ(fileDigest(backup), fileDigest(livePath()));
    EXPECT_EQ(QFileInfo(backup).permissions() & (QFileDevice::ReadOther | QFileDevice::ReadGroup),
              QFileDevice::Permissions());
    // No temporary file is left beside the exports.
    EXPECT_EQ(QDir(sandbox.root()).entryList(QDir::Files | QDir::Hidden),
              (QStringList{QStringLiteral("contacts.cbkm"), QStringLiteral("profile.vts")}));
}

TEST_F(UserContactDataTest, ExportsThatCannotBeWrittenSayWhyAndLoseNothing) {
    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    profile.Pfx = "PFX";
    ASSERT_TRUE(NivoGXUtil::setNivoProfile(profile));
    NivoGXUtil::writeToLog(QStringLiteral("Encrypt"), QStringLiteral("/a"), {},
                           QStringLiteral("Completed"));
    // A regular file where the destination's folder should be stops even root, as a full disk
    // would.
    const QString notAFolder = file(QStringLiteral("not-a-folder"));
    ASSERT_TRUE(putFile(notAFolder, "kept"));
    const QString reason = QStringLiteral("The folder %1 does not exist.").arg(notAFolder);
    const struct {
        UserDataExport::Result result;
        QString failure;
    } cases[] = {
        {UserDataExport::exportContacts(notAFolder + u"/b"_s), u"Unable to export contacts. "_s},
        {UserDataExport::exportProfile(notAFolder + u"/p"_s), u"Unable to export NIVO Profile. "_s},
        {UserDataExport::exportLog(notAFolder + u"/l"_s), u"Unable to export Log file. "_s},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result.failure, c.failure + reason) << c.result.path.toStdString();
    }
    EXPECT_EQ(fileBytes(notAFolder), QByteArray("kept"));
    EXPECT_EQ(QDir(sandbox.root()).entryList(QDir::Files | QDir::Hidden),
              QStringList{QStringLiteral("not-a-folder")});

    // No backup while the profile row cannot be taken out: another process holds the database.
    ASSERT_NE(NivoGXUtil::currentContactDB()->addNivoProfile(profile), -1);
    {
        SqliteDatabase other(livePath(), SqliteDatabase::Mode::ReadWriteCreate);
        ASSERT_TRUE(other.execute("BEGIN EXCLUSIVE"));
        EXPECT_EQ(UserDataExport::exportContacts(file(u"b"_s)).failure,
                  u"Unable to export contacts. Cannot take the profile out of %1: database is "
                  "locked"_s.arg(livePath()));
        EXPECT_FALSE(QFileInfo::exists(file(u"b.cbkm"_s)));
    }

    // The texts of the refusals without a signed-in user stay as they were.
    NivoGXUtil::resetState();
    EXPECT_EQ(UserDataExport::exportContacts(file(u"b"_s)).failure,
              u"Unable to export contact. Please sign in."_s);
    EXPECT_EQ(UserDataExport::exportProfile(file(u"p"_s)).failure,
              u"Unable to export NIVO Profile. Please sign in."_s);
    EXPECT_EQ(UserDataExport::exportLog(file(u"l"_s)).failure,
              u"Unable to export Log file. Log file does not exist."_s);
}

TEST_F(UserContactDataTest, ImportTakesOnlyVerifiedKeysSkipsTheOwnAccountAndTwiceChangesNothing) {
    const auto cert = [](const char* name, int copy = 0) {
        return TestPki::serviceCertificate(QString::fromLatin1(name), copy);
    };
    NivoGXUtil::addContact(contact(QStringLiteral("bob"), QStringLiteral("Old Bob"), cert("bob")));
    const QByteArray graceKey = cert("grace");
    NivoGXUtil::addContact(contact(QStringLiteral("grace"), QStringLiteral("Grace"), graceKey));
    TestPki stranger;
    const QString backup = backupWith(
        QStringLiteral("from elsewhere.cbkm"),
        {contact(QStringLiteral("alice"), QStringLiteral("Me"), cert("alice")),
         // A re-issued key from the service replaces the old one.
         contact(QStringLiteral("Bob"), QStringLiteral("Bob"), cert("bob", 1)),
         contact(QStringLiteral("carol"), QString(), cert("carol")),
         contact(QStringLiteral("dave"), QStringLiteral("Dave"), QByteArray()),
         contact(QStringLiteral("erin"), QStringLiteral("Erin"), cert("erin")),
         // Keys the service did not issue to that name never get in.
         contact(QStringLiteral("grace"), QStringLiteral("Grace"),
                 stranger.createSelfSigned(QStringLiteral("grace")).certDer),
         contact(QStringLiteral("frank"), QStringLiteral("Frank"), cert("erin"))});
    // A row with no account name at all cannot be made through ContactDB.
    ASSERT_TRUE(sqliteExec(
        backup, QStringLiteral("insert into CONTACT (DisplayName, CertData) values ('X', 'X')")));
    const QByteArray before = fileDigest(backup);

    QStringList skipped;
    EXPECT_EQ(NivoGXUtil::importContacts(backup, &skipped), QStringLiteral(""));
    EXPECT_EQ(skipped, (QStringList{QStringLiteral("grace (self-signed certificate)"),
                                    QStringLiteral("frank (certificate made out to \"erin\")")}));
    EXPECT_EQ(ContactDB::notImportedMessage(skipped),
              QStringLiteral("2 contacts were not imported, as their certificates could not be "
                             "verified: grace (self-signed certificate), frank (certificate made "
                             "out to \"erin\")."));
    const QStringList once = liveRows();
    EXPECT_EQ(once, (QStringList{QStringLiteral("1|bob|Bob|") + QString::fromLatin1(cert("bob", 1).toHex().toUpper()),
                                 QStringLiteral("2|grace|Grace|") + QString::fromLatin1(graceKey.toHex().toUpper()),
                                 QStringLiteral("3|erin|Erin|") + QString::fromLatin1(cert("erin").toHex().toUpper())}));
    EXPECT_EQ(NivoGXUtil::importContacts(backup), QStringLiteral(""));
    EXPECT_EQ(liveRows(), once);
    EXPECT_EQ(fileDigest(backup), before);
}

TEST_F(UserContactDataTest, MappingImportTakesOverPresetsByNameWithTheirMemberIdsAsTheyStand) {
    NivoGXUtil::saveContactPreset({QStringLiteral("TEAM"), {5}});
    NivoGXUtil::saveContactPreset({QStringLiteral("mine"), {6}});
    const QString backup =
        backupWith(QStringLiteral("presets.cbkm"), {},
                   {{QStringLiteral("Team"), {2, 1}}, {QStringLiteral("Other"), {9}}});
    EXPECT_EQ(NivoGXUtil::importContactMapping(backup), QStringLiteral(""));
    EXPECT_EQ(NivoGXUtil::GetContactPreset(),
              (QList<ContactPreset>{{QStringLiteral("team"), {2, 1}},
                                    {QStringLiteral("mine"), {6}},
                                    {QStringLiteral("other"), {9}}}));
}

TEST_F(UserContactDataTest, AProfileFileCarriesContactsAndPresetsToANewDatabase) {
    const qint64 bob = NivoGXUtil::addContact(contact(
        QStringLiteral("bob"), QStringLiteral("Bob"), TestPki::serviceCertificate(u"bob"_s)));
    const qint64 carol = NivoGXUtil::addContact(contact(
        QStringLiteral("carol"), QStringLiteral("Carol"), TestPki::serviceCertificate(u"carol"_s)));
    NivoGXUtil::saveContactPreset({QStringLiteral("Last used contacts"), {carol, bob}});
    NivoProfile profile;
    profile.LoginName = QStringLiteral("Alice");
    profile.Pfx = "PFX";
    const QString profileFile = file(QStringLiteral("alice.vts"));
    ASSERT_TRUE(NivoGXUtil::exportNivoProfileDB(profileFile, profile));

    // Signing in from the file on a machine without a database: contacts first, then presets.
    NivoGXUtil::deleteUserContactDB(QStringLiteral("Alice"));
    NivoGXUtil::generateUserContactDB(QStringLiteral("Alice"));
    EXPECT_EQ(NivoGXUtil::importContacts(profileFile), QStringLiteral(""));
    EXPECT_EQ(NivoGXUtil::importContactMapping(profileFile), QStringLiteral(""));
    EXPECT_EQ(NivoGXUtil::getContactList().size(), 2);
    EXPECT_EQ(NivoGXUtil::GetContactPreset(),
              (QList<ContactPreset>{{QStringLiteral("last used contacts"), {carol, bob}}}));
}

TEST_F(UserContactDataTest, TheLastRecipientChoiceComesBackInOrderWithoutDeletedContacts) {
    const qint64 bob =
        NivoGXUtil::addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"), "b"));
    const qint64 carol =
        NivoGXUtil::addContact(contact(QStringLiteral("carol"), QStringLiteral("Carol"), "c"));
    const qint64 dave =
        NivoGXUtil::addContact(contact(QStringLiteral("dave"), QStringLiteral("Dave"), "d"));
    QList<Contact> all = NivoGXUtil::getContactList();
    auto withId = [&all](qint64 id) {
        return *std::find_if(all.cbegin(), all.cend(),
                             [id](const Contact& c) { return c.ID == id; });
    };
    RecipientChoice::rememberChoice({withId(dave), withId(bob), withId(carol)});
    NivoGXUtil::deleteContact(bob);
    all = NivoGXUtil::getContactList();
    const QList<Contact> chosen = RecipientChoice::lastChoice(all);
    ASSERT_EQ(chosen.size(), 2);
    EXPECT_EQ(chosen.at(0).ID, dave);
    EXPECT_EQ(chosen.at(1).ID, carol);

    // A person found at the server is kept under the name searched for.
    NivoProfile found;
    found.Cer = QByteArrayLiteral("erin's certificate");
    const auto erin = RecipientChoice::addLookedUp(QStringLiteral("erin"), found);
    ASSERT_TRUE(erin.has_value());
    EXPECT_GT(erin->ID, 0);
    EXPECT_GE(RecipientChoice::indexOf(NivoGXUtil::getContactList(), QStringLiteral("erin")), 0);
    found.StatusText = QStringLiteral("Username not registered");
    EXPECT_FALSE(RecipientChoice::addLookedUp(QStringLiteral("frank"), found).has_value());
    EXPECT_EQ(RecipientChoice::indexOf(NivoGXUtil::getContactList(), QStringLiteral("frank")), -1);
}

}  // namespace
