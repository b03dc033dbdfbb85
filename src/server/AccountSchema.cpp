#include "server/AccountSchema.h"

#include <QSqlRecord>

#include "server/AccountDatabase.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// Taken by whoever creates or updates the tables of a PostgreSQL database, for that transaction.
constexpr qint64 kMigrationLock = 0x6e69766f6778;  // "nivogx"

}  // namespace

QString AccountSchema::update() {
    const QString where = m_database.location().display();
    const bool sqlite = m_database.isSqlite();
    QSqlDatabase db = m_database.connection();
    // One writer at a time from the start, so that two servers opening the same old database do
    // not both update it.
    if (!AccountDatabase::execute(db, sqlite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s) ||
        (!sqlite &&
         (!AccountDatabase::execute(db, u"SET LOCAL client_min_messages = warning"_s) ||
          !AccountDatabase::execute(db, u"SELECT pg_advisory_xact_lock(?)"_s, kMigrationLock)))) {
        const QString error =
            u"cannot lock the account database %1: %2"_s.arg(where, AccountDatabase::lastError(db));
        AccountDatabase::execute(db, u"ROLLBACK"_s);
        return error;
    }
    QString error = migrate(db);
    if (!AccountDatabase::execute(db, error.isEmpty() ? u"COMMIT"_s : u"ROLLBACK"_s) &&
        error.isEmpty()) {
        error = u"cannot update the account database %1: %2"_s.arg(where,
                                                                   AccountDatabase::lastError(db));
    }
    return error;
}

// Brings the tables from their recorded version to kVersion, inside the caller's transaction;
// empty when done, else why not.
QString AccountSchema::migrate(QSqlDatabase& db) {
    const QString where = m_database.location().display();
    const auto failed = [&](const char* what) {
        return u"cannot %1 in the account database %2: %3"_s.arg(QLatin1StringView(what), where,
                                                                 AccountDatabase::lastError(db));
    };
    const auto execute = [&db](const QString& sql, const auto&... values) {
        return AccountDatabase::execute(db, sql, values...);
    };
    const bool sqlite = m_database.isSqlite();
    // A database from before versions were recorded counts as version 0.
    QSqlQuery query(db);
    if (!execute(u"CREATE TABLE IF NOT EXISTS SCHEMA_VERSION (Version INTEGER NOT NULL)"_s) ||
        !AccountDatabase::run(query, u"SELECT MAX(Version) FROM SCHEMA_VERSION"_s) ||
        !query.next()) {
        return failed("read the schema version");
    }
    const bool recorded = !query.value(0).isNull();
    const int version = query.value(0).toInt();
    query.finish();
    if (!recorded && !execute(u"INSERT INTO SCHEMA_VERSION (Version) VALUES (0)"_s)) {
        return failed("record the schema version");
    }
    if (version > kVersion) {
        return u"the account database %1 has tables of version %2, newer than this nivogx-server "
               "knows (%3); run the newer nivogx-server that wrote it, or restore a backup"_s
                   .arg(where)
                   .arg(version)
                   .arg(kVersion);
    }
    const QString blob = sqlite ? u"BLOB"_s : u"BYTEA"_s;
    if (version < 1) {
        // The accounts table, which a database from before versions may have without the
        // Disabled column.
        const QString created = sqlite
                                    ? u"CURRENT_TIMESTAMP"_s
                                    : u"to_char(timezone('UTC', now()), 'YYYY-MM-DD HH24:MI:SS')"_s;
        if (!execute(u"CREATE TABLE IF NOT EXISTS ACCOUNT (LoginName TEXT PRIMARY KEY, "
                     "FirstName TEXT, LastName TEXT, Email TEXT, PasswordSalt %1, "
                     "PasswordHash %1, PasswordIterations INTEGER, Pfx %1, Cer %1, "
                     "Created TEXT DEFAULT %2, Disabled INTEGER NOT NULL DEFAULT 0)"_s.arg(
                         blob, created))) {
            return failed("create the accounts table");
        }
        if (sqlite && !db.record(u"ACCOUNT"_s).contains(u"Disabled"_s) &&
            !execute(u"ALTER TABLE ACCOUNT ADD COLUMN Disabled INTEGER NOT NULL DEFAULT 0"_s)) {
            return failed("add the Disabled column");
        }
    }
    if (version < 2) {
        // What processes sharing the database must agree on: the serial counter and the
        // throttling's records (times in ms since the epoch).
        for (
            const QString& statement :
            {u"CREATE TABLE CERTIFICATE_COUNTER (Id INTEGER PRIMARY KEY, Issued BIGINT NOT NULL)"_s,
             u"INSERT INTO CERTIFICATE_COUNTER (Id, Issued) VALUES (1, 0)"_s,
             u"CREATE TABLE THROTTLE_PAIR (Account TEXT NOT NULL, Client TEXT NOT NULL, "
             "Failures BIGINT NOT NULL, LastFailure BIGINT NOT NULL, LockedUntil BIGINT NOT NULL, "
             "PRIMARY KEY (Account, Client))"_s,
             u"CREATE TABLE THROTTLE_ACCOUNT (Account TEXT PRIMARY KEY, Failures BIGINT NOT NULL, "
             "NextCheck BIGINT NOT NULL, LastFailure BIGINT NOT NULL)"_s,
             u"CREATE TABLE SIGNUP_LIMIT (Client TEXT PRIMARY KEY, "
             "Tokens DOUBLE PRECISION NOT NULL, Updated BIGINT NOT NULL)"_s}) {
            if (!execute(statement)) {
                return failed("create the counters");
            }
        }
    }
    if (version < kVersion && !execute(u"UPDATE SCHEMA_VERSION SET Version = ?"_s, kVersion)) {
        return failed("record the schema version");
    }
    return {};
}
