// Contact backups that are not what they claim: text, empty files, SQLite files of some other
// program, a CONTACT table with values of the wrong kinds, a 100 MB certificate, a file cut short
// in the middle of its data. None of them may put anything unusable into the user's contacts,
// and none is written.
#include <gtest/gtest.h>

#include "TestPki.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "SqliteShell.h"
#include "TestFiles.h"
#include "UserSandbox.h"
#include "session/NivoGXUtil.h"
#include "sqlite/SqliteDatabase.h"

namespace {

class HostileBackupTest : public ::testing::Test {
protected:
    void SetUp() override {
        sandbox.setUpUser(QStringLiteral("alice"));
        NivoGXUtil::addContact({0, QStringLiteral("bob"), QStringLiteral("Bob"), "B"});
        m_live = fileDigest(livePath());
    }

    QString livePath() const { return NivoGXUtil::contactDBPath(QStringLiteral("alice")); }
    QString file(const QString& name) const { return QDir(sandbox.root()).filePath(name); }

    // A database file of the statements given, as some other program might have written it.
    QString database(const QString& name, std::initializer_list<SqlText> statements) const {
        const QString path = file(name);
        SqliteDatabase db(path, SqliteDatabase::Mode::ReadWriteCreate);
        for (const SqlText sql : statements) {
            EXPECT_TRUE(db.execute(sql)) << sql.c_str();
        }
        return path;
    }

    // Imports `path` and checks that the file was only read; returns the message.
    QString import(const QString& path) const {
        const QByteArray before = fileDigest(path);
        const QString message = NivoGXUtil::importContacts(path);
        EXPECT_EQ(fileDigest(path), before) << "the backup was written to";
        return message;
    }

    void expectContactsUnchanged() const {
        EXPECT_EQ(fileDigest(livePath()), m_live);
        EXPECT_EQ(sqliteShell(livePath(), QStringLiteral("select NivoID from CONTACT")),
                  QStringList{QStringLiteral("bob")});
    }

    UserSandbox sandbox;
    QByteArray m_live;
};

TEST_F(HostileBackupTest, WhatIsNotAContactDatabaseIsRefused) {
    const QString text = file(QStringLiteral("notes.cbkm"));
    ASSERT_TRUE(putFile(text, QByteArray(4096, 'z')));
    const QString empty = file(QStringLiteral("empty.cbkm"));
    ASSERT_TRUE(putFile(empty));
    const QString other = database(QStringLiteral("other.cbkm"),
                                   {"create table NOTES (ID integer primary key, Text text)",
                                    "insert into NOTES (Text) values ('not a contact')",
                                    "create table CONTACTS (NivoID text, CertData blob)",
                                    "insert into CONTACTS values ('mallory', x'3082')"});
    for (const QString& path : {text, empty, other}) {
        EXPECT_EQ(import(path), QStringLiteral("Unable to retrieve contacts from file."));
        const QByteArray before = fileDigest(path);
        EXPECT_EQ(NivoGXUtil::importContactMapping(path), QStringLiteral(""));
        EXPECT_EQ(fileDigest(path), before);
    }
    // A file that cannot be opened at all imports nothing, silently, and is not made.
    EXPECT_EQ(import(file(QStringLiteral("missing.cbkm"))), QStringLiteral(""));
    EXPECT_FALSE(QFile::exists(file(QStringLiteral("missing.cbkm"))));
    expectContactsUnchanged();
}

TEST_F(HostileBackupTest, ContactRowsWithValuesOfTheWrongKindsAreSkipped) {
    // No declared types, so every value keeps the kind it was given.
    const QString path =
        database(QStringLiteral("types.cbkm"),
                 {"create table CONTACT (ID, DisplayName, NivoID, CertData)",
                  "insert into CONTACT values ('one', 'Num', 42, x'3082')",
                  "insert into CONTACT values (2, x'4e616d65', 'blobname', x'30')",
                  "insert into CONTACT values (3, 'Text Cert', 'textcert', 'cert')",
                  "insert into CONTACT values (4, 'Real', 'floaty', 1.5)",
                  "create table PRESET (x)"});
    EXPECT_EQ(import(path), QString());
    expectContactsUnchanged();

    // A table with none of the columns imports nothing either.
    EXPECT_EQ(import(database(QStringLiteral("bare.cbkm"),
                              {"create table CONTACT (a, b)", "insert into CONTACT values ('x', x'30')"})),
              QString());
    expectContactsUnchanged();
}

TEST_F(HostileBackupTest, AHugeCertificateIsSkippedAndAFileCutShortAddsNothing) {
    const QString path = database(
        QStringLiteral("big.cbkm"),
        {"create table CONTACT (ID integer primary key autoincrement, DisplayName text, "
         "NivoID text, CertData blob)"});
    {
        SqliteDatabase db(path, SqliteDatabase::Mode::ReadWriteCreate);
        ASSERT_TRUE(db.execute("insert into CONTACT (DisplayName, NivoID, CertData) "
                               "values ('Erin', 'erin', ?)",
                               TestPki::serviceCertificate(QStringLiteral("erin"))));
        ASSERT_TRUE(db.execute("insert into CONTACT (DisplayName, NivoID, CertData) "
                               "values ('Big', 'big', zeroblob(100 * 1024 * 1024))"));
    }
    // The file cut in the middle of the big value: Erin's row reads fine, then the file ends.
    const QString cut = file(QStringLiteral("cut.cbkm"));
    ASSERT_TRUE(QFile::copy(path, cut));
    ASSERT_TRUE(QFile::resize(cut, QFileInfo(path).size() / 2));

    const QString message = import(cut);
    EXPECT_FALSE(message.isEmpty());
    EXPECT_NE(message, QStringLiteral("not an error"));
    expectContactsUnchanged();

    // Whole, the file gives Erin; the 100 MB value is no certificate and stays out.
    EXPECT_EQ(import(path), QString());
    EXPECT_EQ(sqliteShell(livePath(), QStringLiteral("select NivoID, length(CertData) from "
                                                     "CONTACT order by ID")),
              (QStringList{QStringLiteral("bob|1"),
                           QStringLiteral("erin|%1")
                               .arg(TestPki::serviceCertificate(QStringLiteral("erin")).size())}));
    EXPECT_LT(QFileInfo(livePath()).size(), 1024 * 1024);
}

}  // namespace
