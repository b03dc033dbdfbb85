#include "server/AccountStore.h"

#include <QFile>

#include "sqlite/SqliteDatabase.h"

namespace {

constexpr SqlText kCreateTable =
    "CREATE TABLE IF NOT EXISTS ACCOUNT (LoginName TEXT PRIMARY KEY, FirstName TEXT, "
    "LastName TEXT, Email TEXT, PasswordSalt BLOB, PasswordHash BLOB, "
    "PasswordIterations INTEGER, Pfx BLOB, Cer BLOB, Created TEXT DEFAULT CURRENT_TIMESTAMP, "
    "Disabled INTEGER NOT NULL DEFAULT 0)";

// Whether a statement changed a row: SQLite's changes() is not exposed, so the row is read back.
bool hasRow(SqliteDatabase& db, const QString& loginName) {
    SqliteStatement row =
        db.query("SELECT LoginName FROM ACCOUNT WHERE LoginName = ?", loginName.toLower());
    return row.isValid() && row.next();
}

}  // namespace

AccountStore::AccountStore(QString databasePath) : m_path(std::move(databasePath)) {}

bool AccountStore::open() {
    // Created owner-only before SQLite sees it; SQLite gives its journal files the same mode.
    if (!QFile::exists(m_path)) {
        QFile file(m_path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
            return false;
        }
    }
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    if (!db.isOpen() || !db.execute(kCreateTable)) {
        return false;
    }
    // A database from before accounts could be disabled gains the column.
    SqliteStatement column = db.query("SELECT 1 FROM pragma_table_info('ACCOUNT') WHERE name = 'Disabled'");
    return (column.isValid() && column.next()) ||
           db.execute("ALTER TABLE ACCOUNT ADD COLUMN Disabled INTEGER NOT NULL DEFAULT 0");
}

bool AccountStore::isHealthy() {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    SqliteStatement row = db.query("SELECT COUNT(*) FROM ACCOUNT");
    return row.isValid() && row.next();
}

bool AccountStore::insert(const Account& account) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    return db.execute(
        "INSERT INTO ACCOUNT (LoginName, FirstName, LastName, Email, PasswordSalt, PasswordHash, "
        "PasswordIterations, Pfx, Cer) VALUES (?,?,?,?,?,?,?,?,?)",
        account.loginName.toLower(), account.firstName, account.lastName, account.email,
        account.password.salt, account.password.hash,
        static_cast<qint64>(account.password.iterations), account.pfx, account.certificate);
}

std::optional<AccountStore::Account> AccountStore::find(const QString& loginName) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    SqliteStatement row = db.query("SELECT * FROM ACCOUNT WHERE LoginName = ?", loginName.toLower());
    if (!row.isValid() || !row.next()) {
        return std::nullopt;
    }
    Account account;
    account.loginName = row.columnText("LoginName");
    account.firstName = row.columnText("FirstName");
    account.lastName = row.columnText("LastName");
    account.email = row.columnText("Email");
    account.password.salt = row.columnBlob("PasswordSalt");
    account.password.hash = row.columnBlob("PasswordHash");
    account.password.iterations = row.columnInt("PasswordIterations");
    account.pfx = row.columnBlob("Pfx");
    account.certificate = row.columnBlob("Cer");
    account.disabled = row.columnInt("Disabled") != 0;
    return account;
}

bool AccountStore::exists(const QString& loginName) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    SqliteStatement row =
        db.query("SELECT LoginName FROM ACCOUNT WHERE LoginName = ?", loginName.toLower());
    return row.isValid() && row.next();
}

bool AccountStore::updateCredentials(const QString& loginName,
                                     const AccountAuthority::PasswordHash& password,
                                     const QByteArray& pfx) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    return db.execute(
        "UPDATE ACCOUNT SET PasswordSalt = ?, PasswordHash = ?, PasswordIterations = ?, Pfx = ? "
        "WHERE LoginName = ?",
        password.salt, password.hash, static_cast<qint64>(password.iterations), pfx,
        loginName.toLower());
}

QList<AccountStore::Listed> AccountStore::list() {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    SqliteStatement row =
        db.query("SELECT LoginName, Email, Created, Disabled FROM ACCOUNT ORDER BY LoginName");
    QList<Listed> accounts;
    while (row.isValid() && row.next()) {
        accounts.append({row.columnText("LoginName"), row.columnText("Email"),
                         row.columnText("Created"), row.columnInt("Disabled") != 0});
    }
    return accounts;
}

bool AccountStore::setDisabled(const QString& loginName, bool disabled) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    return hasRow(db, loginName) &&
           db.execute("UPDATE ACCOUNT SET Disabled = ? WHERE LoginName = ?",
                      static_cast<qint64>(disabled ? 1 : 0), loginName.toLower());
}

bool AccountStore::remove(const QString& loginName) {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    return hasRow(db, loginName) &&
           db.execute("DELETE FROM ACCOUNT WHERE LoginName = ?", loginName.toLower());
}
