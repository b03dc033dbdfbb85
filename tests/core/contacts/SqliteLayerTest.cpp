// The thin SQLite layer: values keep the difference between NULL and empty, read-only files stay
// untouched, and SQLite's own messages come through.
#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "SqliteShell.h"
#include "sqlite/SqliteDatabase.h"

namespace {

QByteArray digest(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly)
               ? QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256)
               : QByteArray();
}

class SqliteLayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        SqliteDatabase db(path(), SqliteDatabase::Mode::ReadWriteCreate);
        ASSERT_TRUE(db.isOpen());
        ASSERT_TRUE(
            db.execute("CREATE TABLE T(Id integer primary key autoincrement, Txt TEXT, "
                       "Bin BLOB)"));
    }
    QString path() const { return dir.filePath(QStringLiteral("t.db")); }
    QTemporaryDir dir;
};

TEST_F(SqliteLayerTest, NullAndEmptyValuesStayApartBothWays) {
    {
        SqliteDatabase db(path(), SqliteDatabase::Mode::ReadWriteCreate);
        ASSERT_TRUE(db.execute("insert into T (Txt,Bin) values (?,?)", QString(), QByteArray()));
        EXPECT_EQ(db.lastInsertRowId(), 1);
        ASSERT_TRUE(
            db.execute("insert into T (Txt,Bin) values (?,?)", QStringLiteral(""), QByteArray("")));
        ASSERT_TRUE(db.execute("insert into T (Txt,Bin) values (?,?)", QStringLiteral("Zoë ✓"),
                               QByteArray("\x00\x01\xff", 3)));
        EXPECT_EQ(db.lastInsertRowId(), 3);
    }
    EXPECT_EQ(sqliteShell(path(), QStringLiteral("select typeof(Txt), typeof(Bin), length(Bin) "
                                                 "from T order by Id")),
              (QStringList{QStringLiteral("null|null|"), QStringLiteral("text|blob|0"),
                           QStringLiteral("text|blob|3")}));

    SqliteDatabase db(path(), SqliteDatabase::Mode::ReadOnly);
    SqliteStatement rows = db.query("select * from T order by Id");
    ASSERT_TRUE(rows.next());
    EXPECT_TRUE(rows.columnText("Txt").isNull());
    EXPECT_TRUE(rows.columnBlob("Bin").isNull());
    ASSERT_TRUE(rows.next());
    EXPECT_FALSE(rows.columnText("txt").isNull());  // column names ignore case
    EXPECT_TRUE(rows.columnText("txt").isEmpty());
    EXPECT_FALSE(rows.columnBlob("BIN").isNull());
    EXPECT_TRUE(rows.columnBlob("BIN").isEmpty());
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.columnInt("Id"), 3);
    EXPECT_EQ(rows.columnText("Txt"), QStringLiteral("Zoë ✓"));
    EXPECT_EQ(rows.columnBlob("Bin"), QByteArray("\x00\x01\xff", 3));
    EXPECT_EQ(rows.columnInt("NoSuchColumn"), 0);
    EXPECT_TRUE(rows.columnText("NoSuchColumn").isNull());
    EXPECT_FALSE(rows.next());
    // Running off the end is success, not "no more rows".
    EXPECT_EQ(db.lastErrorMessage(), QStringLiteral("not an error"));
}

TEST_F(SqliteLayerTest, ReadOnlyConnectionsNeitherCreateNorChangeFiles) {
    const QString missing = dir.filePath(QStringLiteral("missing.db"));
    EXPECT_FALSE(SqliteDatabase(missing, SqliteDatabase::Mode::ReadOnly).isOpen());
    EXPECT_FALSE(QFile::exists(missing));

    const QByteArray before = digest(path());
    {
        SqliteDatabase db(path(), SqliteDatabase::Mode::ReadOnly);
        ASSERT_TRUE(db.isOpen());
        EXPECT_FALSE(db.execute("insert into T (Txt) values (?)", QStringLiteral("x")));
        EXPECT_EQ(db.lastErrorMessage(), QStringLiteral("attempt to write a readonly database"));
    }
    EXPECT_EQ(digest(path()), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("t.db")});
}

TEST_F(SqliteLayerTest, SqliteMessagesComeThroughAndFailuresAreInvalidStatements) {
    SqliteDatabase db(path(), SqliteDatabase::Mode::ReadWriteCreate);
    SqliteStatement rows = db.query("select * from Missing");
    EXPECT_FALSE(rows.isValid());
    EXPECT_FALSE(rows.next());
    EXPECT_EQ(db.lastErrorMessage(), QStringLiteral("no such table: Missing"));
    EXPECT_TRUE(db.execute("delete from T"));
    EXPECT_EQ(db.lastErrorMessage(), SqliteDatabase::noErrorMessage());

    const QString text = dir.filePath(QStringLiteral("notes.txt"));
    QFile file(text);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(200, 'x'));
    file.close();
    SqliteDatabase notADatabase(text, SqliteDatabase::Mode::ReadOnly);
    ASSERT_TRUE(notADatabase.isOpen());  // SQLite looks at the content only when asked
    EXPECT_FALSE(notADatabase.query("select * from T").isValid());
    EXPECT_EQ(notADatabase.lastErrorMessage(), QStringLiteral("file is not a database"));
}

}  // namespace
