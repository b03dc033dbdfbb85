// The contact database on real SQLite files: schema, contacts and presets matched in any letter
// case, the profile row and the profile file read back, and failure values for an unusable file.
#include <gtest/gtest.h>

#include "TestPki.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "SqliteShell.h"
#include "TestFiles.h"
#include "contacts/ContactDB.h"

namespace {

Contact contact(const QString& nivoID, const QString& displayName, const QByteArray& cert) {
    return {0, nivoID, displayName, cert};
}

NivoProfile profile(const QString& loginName, const QByteArray& pfx) {
    NivoProfile p;
    p.LoginName = loginName;
    p.Pfx = pfx;
    return p;
}

// Stands in for the PKCS#12 reader: only the password "secret" opens a PFX.
QByteArray certificateFromPfx(const QByteArray& pfx, const QString& password) {
    return password == QStringLiteral("secret") ? "CER of " + pfx : QByteArray();
}

class ContactDBTest : public ::testing::Test {
protected:
    void SetUp() override { db.initDB(path()); }
    QString path() const { return dir.filePath(QStringLiteral("Contact_alice.db")); }

    QTemporaryDir dir;
    ContactDB db;
};

TEST_F(ContactDBTest, CreatesExactlyTheFourTablesAndKeepsDataWhenOpenedAgain) {
    EXPECT_EQ(sqliteShell(path(), QStringLiteral("select sql from sqlite_master where type='table' "
                                                 "and name not like 'sqlite_%' order by rowid")),
              (QStringList{
                  QStringLiteral("CREATE TABLE CONTACT(ID integer primary key autoincrement, "
                                 "DisplayName TEXT, NivoID TEXT, CertData BLOB)"),
                  QStringLiteral("CREATE TABLE PRESET(PresetID integer primary key "
                                 "autoincrement,Name TEXT)"),
                  QStringLiteral("CREATE TABLE PRESETMAPPING(PresetMappingID integer primary key "
                                 "autoincrement, PresetID int, ID int)"),
                  QStringLiteral("CREATE TABLE NIVOPROFILE(UserID integer primary key "
                                 "autoincrement, UserNivoID TEXT, PfxData BLOB)")}));
    db.addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"), "B"));
    db.initDB(path());
    EXPECT_EQ(db.getContactList().size(), 1);
}

TEST_F(ContactDBTest, AnAccountNameInAnotherLetterCaseUpdatesTheStoredRow) {
    const qint64 bob =
        db.addContact(contact(QStringLiteral("Bob.Smith"), QStringLiteral("Bob"), "B1"));
    const qint64 emile =
        db.addContact(contact(QStringLiteral("ÉMILE"), QStringLiteral("Émile"), "E"));
    EXPECT_GT(bob, 0);
    EXPECT_NE(bob, emile);
    EXPECT_EQ(db.addContact(contact(QStringLiteral("BOB.SMITH"), QStringLiteral("Robert"), "B2")),
              bob);
    EXPECT_EQ(db.contactExists(QStringLiteral("émile")), emile);  // beyond ASCII too
    EXPECT_EQ(db.contactExists(QStringLiteral("nobody")), -1);
    EXPECT_EQ(db.getContactList(),
              (QList<Contact>{{bob, QStringLiteral("bob.smith"), QStringLiteral("Robert"), "B2"},
                              {emile, QStringLiteral("émile"), QStringLiteral("Émile"), "E"}}));
}

TEST_F(ContactDBTest, CertificateLookupNamesTheLaterOfTwoRows) {
    db.addContact(contact(QStringLiteral("first"), QStringLiteral("First"), "shared cert"));
    db.addContact(contact(QStringLiteral("second"), QStringLiteral("Second"), "shared cert"));
    EXPECT_EQ(db.getNIVOIDfromCertData("shared cert"), QStringLiteral("second"));
    EXPECT_EQ(db.getNIVOIDfromCertData("shared"), QStringLiteral(""));  // whole bytes only
}

TEST_F(ContactDBTest, PresetsMatchNamesInAnyCaseAndTheirMembersAreReplacedInOrder) {
    const qint64 last = db.addPreset(QStringLiteral("Last used contacts"));
    EXPECT_EQ(db.addPreset(QStringLiteral("LAST USED CONTACTS")), last);
    const qint64 team = db.addPreset(QStringLiteral("ÜBER Team"));
    EXPECT_EQ(db.addPreset(QStringLiteral("über team")), team);

    EXPECT_EQ(db.saveContactPreset({QStringLiteral("Last Used Contacts"), {3, 1, 2}}),
              QStringLiteral("not an error"));
    EXPECT_EQ(db.saveContactPreset({QStringLiteral("Fresh"), {7}}), QStringLiteral("not an error"));
    EXPECT_EQ(db.GetContactPreset(),
              (QList<ContactPreset>{{QStringLiteral("last used contacts"), {3, 1, 2}},
                                    {QStringLiteral("über team"), {}},
                                    {QStringLiteral("fresh"), {7}}}));

    EXPECT_EQ(db.saveContactPreset({QStringLiteral("last used contacts"), {}}),
              QStringLiteral("not an error"));
    EXPECT_TRUE(db.GetContactPreset()[0].contactThreadList.isEmpty());
    EXPECT_EQ(sqliteCount(path(), QStringLiteral("PRESET")), 3);
}

TEST_F(ContactDBTest, NamelessPresetsOfAnImportedFileBecomeOnePreset) {
    const QString file = dir.filePath(QStringLiteral("nameless.cbkm"));
    ASSERT_TRUE(db.exportDB(file));
    ASSERT_TRUE(sqliteExec(file, QStringLiteral("insert into PRESET (Name) values (NULL), (NULL)")));

    db.importContactMappingDB(file);
    db.importContactMappingDB(file);
    const QList<ContactPreset> presets = db.GetContactPreset();
    ASSERT_EQ(presets.size(), 1);
    EXPECT_EQ(presets.first().name, QStringLiteral(""));
}

TEST_F(ContactDBTest, DeletingAContactTakesItOutOfEveryPreset) {
    const qint64 a = db.addContact(contact(QStringLiteral("a"), QStringLiteral("A"), "A"));
    const qint64 b = db.addContact(contact(QStringLiteral("b"), QStringLiteral("B"), "B"));
    db.saveContactPreset({QStringLiteral("one"), {a, b}});
    db.saveContactPreset({QStringLiteral("two"), {b}});
    db.deleteContact(b);
    EXPECT_EQ(db.getContactList().size(), 1);
    EXPECT_EQ(db.GetContactPreset(),
              (QList<ContactPreset>{{QStringLiteral("one"), {a}}, {QStringLiteral("two"), {}}}));
}

TEST_F(ContactDBTest, TheProfileRowIsRewrittenInPlaceAndRemovedWhole) {
    EXPECT_FALSE(db.GetNivoProfile().has_value());
    EXPECT_EQ(db.addNivoProfile(profile(QStringLiteral("Alice"), "PFX 1")), 1);
    EXPECT_EQ(db.addNivoProfile(profile(QStringLiteral("ALICE"), "PFX 2")), 1);
    EXPECT_EQ(sqliteShell(path(), QStringLiteral("select * from NIVOPROFILE")),
              QStringList{QStringLiteral("1|alice|PFX 2")});
    EXPECT_EQ(db.GetNivoProfile()->Pfx, QByteArray("PFX 2"));
    ASSERT_TRUE(db.removeNivoProfile());
    EXPECT_FALSE(db.GetNivoProfile().has_value());
}

TEST_F(ContactDBTest, AProfileFileIsAcceptedOnlyForItsUserAndPasswordAndItsLastRowWins) {
    const QString file = dir.filePath(QStringLiteral("profile.vts"));
    const auto import = [&file](const QString& user, const QString& password) {
        return ContactDB::importProfileDB(file, user, password, certificateFromPfx);
    };
    db.addNivoProfile(profile(QStringLiteral("Alice"), "PFX"));
    ASSERT_TRUE(db.exportDB(file));
    const NivoProfile ok = import(QStringLiteral("ALICE"), QStringLiteral("secret"));
    EXPECT_EQ(ok.StatusText, QStringLiteral(""));
    EXPECT_EQ(ok.LoginName, QStringLiteral("alice"));
    EXPECT_EQ(ok.Cer, QByteArray("CER of PFX"));
    EXPECT_EQ(import(QStringLiteral("bob"), QStringLiteral("secret")).StatusText,
              QStringLiteral("Invalid Username"));
    EXPECT_EQ(import(QStringLiteral("alice"), QStringLiteral("wrong")).StatusText,
              QStringLiteral("Invalid password"));

    // This program always rewrites row 1; a second row can only come from elsewhere.
    ASSERT_TRUE(sqliteExec(file, QStringLiteral("insert into NIVOPROFILE (UserNivoID,PfxData) "
                                                "values ('alice', 'LAST')")));
    EXPECT_EQ(import(QStringLiteral("alice"), QStringLiteral("secret")).Pfx, QByteArray("LAST"));
}

TEST_F(ContactDBTest, FilesWithoutAProfileAreRefused) {
    const QString empty = dir.filePath(QStringLiteral("empty.vts"));
    const QString text = dir.filePath(QStringLiteral("notes.vts"));
    ASSERT_TRUE(putFile(empty));
    ASSERT_TRUE(putFile(text, QByteArray(300, 'n')));
    // The last one is a database with an empty profile table.
    for (const QString& file : {empty, text, dir.filePath(QStringLiteral("missing.vts")), path()}) {
        EXPECT_EQ(ContactDB::importProfileDB(file, QStringLiteral("alice"),
                                             QStringLiteral("secret"), certificateFromPfx)
                      .StatusText,
                  QStringLiteral("Unable to retrieve NIVO Profile from file."))
            << file.toStdString();
    }
}

TEST_F(ContactDBTest, ViewsInAFileFromOutsideAreRefusedInsteadOfRunForever) {
    // Each table the imports read is a view over a query that never ends.
    const QString endless =
        QStringLiteral("WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM n) ");
    const QString file = dir.filePath(QStringLiteral("views.cbkm"));
    ASSERT_TRUE(sqliteExec(
        file, QStringLiteral("CREATE VIEW CONTACT AS ") + endless +
                  QStringLiteral("SELECT x AS ID, 'N' AS DisplayName, 'n' || x AS NivoID, "
                                 "x'00' AS CertData FROM n; CREATE VIEW PRESET AS ") +
                  endless +
                  QStringLiteral("SELECT x AS PresetID, 'p' AS Name FROM n; "
                                 "CREATE VIEW NIVOPROFILE AS ") +
                  endless +
                  QStringLiteral("SELECT x AS UserID, 'alice' AS UserNivoID, "
                                 "x'00' AS PfxData FROM n;")));

    EXPECT_EQ(db.importContactDB(file, QStringLiteral("alice")),
              QStringLiteral("Unable to retrieve contacts from file."));
    db.importContactMappingDB(file);
    EXPECT_EQ(ContactDB::importProfileDB(file, QStringLiteral("alice"), QStringLiteral("secret"),
                                         certificateFromPfx)
                  .StatusText,
              QStringLiteral("Unable to retrieve NIVO Profile from file."));
    EXPECT_TRUE(db.getContactList().isEmpty());
    EXPECT_TRUE(db.GetContactPreset().isEmpty());
}

TEST_F(ContactDBTest, ImportingAFileInWalModeWritesNothingNextToIt) {
    db.addContact(contact(QStringLiteral("bob"), QStringLiteral("Bob"),
                          TestPki::serviceCertificate(QStringLiteral("bob"))));
    QDir(dir.path()).mkdir(QStringLiteral("chosen"));
    const QString file = dir.filePath(QStringLiteral("chosen/wal.cbkm"));
    ASSERT_TRUE(db.exportDB(file));
    ASSERT_TRUE(sqliteExec(file, QStringLiteral("PRAGMA journal_mode=WAL;")));
    const QByteArray bytes = fileBytes(file);

    ContactDB other;
    other.initDB(dir.filePath(QStringLiteral("Contact_carol.db")));
    EXPECT_EQ(other.importContactDB(file, QStringLiteral("carol")), QStringLiteral(""));
    other.importContactMappingDB(file);
    EXPECT_EQ(ContactDB::importProfileDB(file, QStringLiteral("carol"), QStringLiteral("secret"),
                                         certificateFromPfx)
                  .StatusText,
              QStringLiteral("Unable to retrieve NIVO Profile from file."));
    ASSERT_EQ(other.getContactList().size(), 1);
    EXPECT_EQ(other.getContactList().first().NivoID, QStringLiteral("bob"));
    EXPECT_EQ(QDir(dir.filePath(QStringLiteral("chosen")))
                  .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{QStringLiteral("wal.cbkm")});
    EXPECT_EQ(fileBytes(file), bytes);
}

TEST_F(ContactDBTest, AnUnusableDatabaseGivesFailureValuesAndCreatesNothing) {
    ContactDB broken;
    broken.initDB(dir.filePath(QStringLiteral("gone/Contact_x.db")));
    EXPECT_EQ(broken.addContact(contact(QStringLiteral("x"), QStringLiteral("X"), "X")), -1);
    EXPECT_TRUE(broken.getContactList().isEmpty());
    EXPECT_EQ(broken.addPreset(QStringLiteral("p")), -1);
    EXPECT_EQ(broken.saveContactPreset({QStringLiteral("p"), {1}}), QStringLiteral(""));
    EXPECT_EQ(broken.addNivoProfile(profile(QStringLiteral("x"), "P")), -1);
    EXPECT_FALSE(broken.removeNivoProfile());
    EXPECT_FALSE(broken.exportDB(dir.filePath(QStringLiteral("copy.cbkm"))));
    EXPECT_FALSE(QFile::exists(dir.filePath(QStringLiteral("copy.cbkm"))));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("gone"))));
}

}  // namespace
