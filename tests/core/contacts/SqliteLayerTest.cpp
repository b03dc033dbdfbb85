// The thin SQLite layer: NULL and empty values stay apart, and read-only connections neither
// create nor change files.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "SqliteShell.h"
#include "sqlite/SqliteDatabase.h"

namespace {

TEST(SqliteLayerTest, NullAndEmptyValuesStayApartBothWays) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("t.db"));
    {
        SqliteDatabase db(path, SqliteDatabase::Mode::ReadWriteCreate);
        ASSERT_TRUE(db.execute("CREATE TABLE T(Id integer primary key, Txt TEXT, Bin BLOB)"));
        for (const auto& [text, bytes] :
             {std::pair{QString(), QByteArray()}, std::pair{QStringLiteral(""), QByteArray("")},
              std::pair{QStringLiteral("Zoë ✓"), QByteArray("\0\xff", 2)}}) {
            ASSERT_TRUE(db.execute("insert into T (Txt,Bin) values (?,?)", text, bytes));
        }
        EXPECT_EQ(db.lastInsertRowId(), 3);
    }
    EXPECT_EQ(sqliteShell(path, QStringLiteral("select typeof(Txt), typeof(Bin), length(Bin) "
                                               "from T order by Id")),
              (QStringList{QStringLiteral("null|null|"), QStringLiteral("text|blob|0"),
                           QStringLiteral("text|blob|2")}));

    SqliteDatabase db(path, SqliteDatabase::Mode::ReadOnly);
    SqliteStatement rows = db.query("select * from T order by Id");
    ASSERT_TRUE(rows.next());
    EXPECT_TRUE(rows.columnText("Txt").isNull());
    EXPECT_TRUE(rows.columnBlob("Bin").isNull());
    ASSERT_TRUE(rows.next());
    EXPECT_TRUE(rows.columnText("txt").isEmpty() && !rows.columnText("txt").isNull());
    EXPECT_TRUE(rows.columnBlob("BIN").isEmpty() && !rows.columnBlob("BIN").isNull());
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.columnText("Txt"), QStringLiteral("Zoë ✓"));
    EXPECT_EQ(rows.columnBlob("Bin"), QByteArray("\0\xff", 2));
    EXPECT_FALSE(rows.next());
    // Running off the end is success, not "no more rows".
    EXPECT_EQ(db.lastErrorMessage(), QStringLiteral("not an error"));
}

TEST(SqliteLayerTest, ReadOnlyConnectionsNeitherCreateNorChangeFiles) {
    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("missing.db"));
    EXPECT_FALSE(SqliteDatabase(missing, SqliteDatabase::Mode::ReadOnly).isOpen());
    EXPECT_FALSE(QFile::exists(missing));

    const QString path = dir.filePath(QStringLiteral("t.db"));
    SqliteDatabase(path, SqliteDatabase::Mode::ReadWriteCreate).execute("CREATE TABLE T(X)");
    const QStringList before = sqliteShell(path, QStringLiteral("select count(*) from T"));
    {
        SqliteDatabase db(path, SqliteDatabase::Mode::ReadOnly);
        EXPECT_FALSE(db.execute("insert into T (X) values (?)", qint64{1}));
        EXPECT_EQ(db.lastErrorMessage(), QStringLiteral("attempt to write a readonly database"));
    }
    EXPECT_EQ(sqliteShell(path, QStringLiteral("select count(*) from T")), before);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("t.db")});
}

}  // namespace
