#include "server/AccountStore.h"

#include "sqlite/SqliteDatabase.h"

namespace {

constexpr SqlText kCreateTable =
    "CREATE TABLE IF NOT EXISTS ACCOUNT (LoginName TEXT PRIMARY KEY, FirstName TEXT, "
    "LastName TEXT, Email TEXT, PasswordSalt BLOB, PasswordHash BLOB, "
    "PasswordIterations INTEGER, Pfx BLOB, Cer BLOB, Created TEXT DEFAULT CURRENT_TIMESTAMP)";

}  // namespace

AccountStore::AccountStore(QString databasePath) : m_path(std::move(databasePath)) {}

bool AccountStore::open() {
    SqliteDatabase db(m_path, SqliteDatabase::Mode::ReadWriteCreate);
    return db.isOpen() && db.execute(kCreateTable);
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
