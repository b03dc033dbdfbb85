#include "server/AccountStore.h"

#include <QSqlQuery>
#include <QVariant>

#include "server/DatabaseCopy.h"

using namespace Qt::Literals::StringLiterals;

namespace {

using Kept = AccountDatabase::Kept;

// The URL's location, with `password`, when given, instead of one in the URL.
DatabaseLocation locate(const QString& url, const QString& password) {
    DatabaseLocation location = DatabaseLocation::parse(url);
    if (!password.isEmpty()) {
        location.password = password;
    }
    return location;
}

}  // namespace

AccountStore::AccountStore(const QString& url, const QString& password)
    : m_database(locate(url, password)) {}

bool AccountStore::open() {
    m_error = m_database.open();
    if (m_error.isEmpty()) {
        m_error = AccountSchema(m_database).update();
    }
    return m_error.isEmpty();
}

template <typename Read, typename... Values>
auto AccountStore::lookUp(const QString& sql, Read read, const Values&... values)
    -> std::optional<decltype(read(std::declval<Kept&>()))> {
    return m_database.retried([&]() -> std::optional<decltype(read(std::declval<Kept&>()))> {
        Kept row(m_database.connection(), sql, values...);
        if (!row.ran()) {
            return std::nullopt;
        }
        return read(row);
    });
}

bool AccountStore::isHealthy() {
    QSqlDatabase db = m_database.connection();
    QSqlQuery query(db);
    return db.isOpen() && AccountDatabase::run(query, u"SELECT COUNT(*) FROM ACCOUNT"_s) &&
           query.next();
}

bool AccountStore::insert(const Account& account) {
    return m_database.retried([&] {
        return AccountDatabase::execute(
            m_database.connection(),
            u"INSERT INTO ACCOUNT (LoginName, FirstName, LastName, Email, PasswordSalt, "
            "PasswordHash, PasswordIterations, Pfx, Cer) VALUES (?,?,?,?,?,?,?,?,?)"_s,
            account.loginName.toLower(), account.firstName, account.lastName, account.email,
            account.password.salt, account.password.hash,
            static_cast<qint64>(account.password.iterations), account.pfx, account.certificate);
    });
}

AccountStore::Found AccountStore::find(const QString& loginName) {
    auto found = lookUp(
        u"SELECT LoginName, FirstName, LastName, Email, PasswordSalt, PasswordHash, "
        "PasswordIterations, Pfx, Cer, Disabled FROM ACCOUNT WHERE LoginName = ?"_s,
        [](Kept& row) -> std::optional<Account> {
            if (!row.next()) {
                return std::nullopt;
            }
            Account account;
            account.loginName = row.value(0).toString();
            account.firstName = row.value(1).toString();
            account.lastName = row.value(2).toString();
            account.email = row.value(3).toString();
            account.password.salt = row.value(4).toByteArray();
            account.password.hash = row.value(5).toByteArray();
            account.password.iterations = row.value(6).toInt();
            account.pfx = row.value(7).toByteArray();
            account.certificate = row.value(8).toByteArray();
            account.disabled = row.value(9).toInt() != 0;
            return account;
        },
        loginName.toLower());
    if (!found) {
        return {std::nullopt, true};
    }
    return {*std::move(found), false};
}

std::optional<bool> AccountStore::exists(const QString& loginName) {
    return lookUp(
        u"SELECT 1 FROM ACCOUNT WHERE LoginName = ?"_s, [](Kept& row) { return row.next(); },
        loginName.toLower());
}

bool AccountStore::updateCredentials(const QString& loginName,
                                     const AccountAuthority::PasswordHash& password,
                                     const QByteArray& pfx) {
    return m_database.retried([&] {
        return AccountDatabase::execute(m_database.connection(),
                                        u"UPDATE ACCOUNT SET PasswordSalt = ?, PasswordHash = ?, "
                                        "PasswordIterations = ?, Pfx = ? WHERE LoginName = ?"_s,
                                        password.salt, password.hash,
                                        static_cast<qint64>(password.iterations), pfx,
                                        loginName.toLower());
    });
}

std::optional<quint64> AccountStore::nextCertificateNumber() {
    return m_database.retried([this]() -> std::optional<quint64> {
        QSqlDatabase db = m_database.connection();
        QSqlQuery row(db);
        // One statement: the row stays locked from the increment to the answer.
        if (!db.isOpen() ||
            !AccountDatabase::run(
                row,
                u"INSERT INTO CERTIFICATE_COUNTER (Id, Issued) VALUES (1, 1) ON CONFLICT (Id) "
                "DO UPDATE SET Issued = CERTIFICATE_COUNTER.Issued + 1 RETURNING Issued"_s) ||
            !row.next()) {
            return std::nullopt;
        }
        return row.value(0).toULongLong();
    });
}

QList<AccountStore::Listed> AccountStore::list() {
    QSqlDatabase db = m_database.connection();
    QSqlQuery row(db);
    QList<Listed> accounts;
    if (db.isOpen() &&
        AccountDatabase::run(
            row, u"SELECT LoginName, Email, Created, Disabled FROM ACCOUNT ORDER BY LoginName"_s)) {
        while (row.next()) {
            accounts.append({row.value(0).toString(), row.value(1).toString(),
                             row.value(2).toString(), row.value(3).toInt() != 0});
        }
    }
    return accounts;
}

bool AccountStore::setDisabled(const QString& loginName, bool disabled) {
    QSqlDatabase db = m_database.connection();
    QSqlQuery query(db);
    return db.isOpen() &&
           AccountDatabase::run(query, u"UPDATE ACCOUNT SET Disabled = ? WHERE LoginName = ?"_s,
                                static_cast<qint64>(disabled ? 1 : 0), loginName.toLower()) &&
           query.numRowsAffected() > 0;
}

bool AccountStore::remove(const QString& loginName) {
    QSqlDatabase db = m_database.connection();
    QSqlQuery query(db);
    return db.isOpen() &&
           AccountDatabase::run(query, u"DELETE FROM ACCOUNT WHERE LoginName = ?"_s,
                                loginName.toLower()) &&
           query.numRowsAffected() > 0;
}

std::optional<AccountStore::PairRecord> AccountStore::pairRecord(const QString& account,
                                                                 const QString& client) {
    auto found = lookUp(
        u"SELECT Failures, LastFailure, LockedUntil FROM THROTTLE_PAIR "
        "WHERE Account = ? AND Client = ?"_s,
        [](Kept& row) -> std::optional<PairRecord> {
            if (!row.next()) {
                return std::nullopt;
            }
            return PairRecord{row.value(0).toLongLong(), row.value(1).toLongLong(),
                              row.value(2).toLongLong()};
        },
        account, client);
    return found ? *found : std::nullopt;
}

std::optional<AccountStore::AccountRecord> AccountStore::accountRecord(const QString& account) {
    auto found = lookUp(
        u"SELECT Failures, NextCheck, LastFailure FROM THROTTLE_ACCOUNT WHERE Account = ?"_s,
        [](Kept& row) -> std::optional<AccountRecord> {
            if (!row.next()) {
                return std::nullopt;
            }
            return AccountRecord{row.value(0).toLongLong(), row.value(1).toLongLong(),
                                 row.value(2).toLongLong()};
        },
        account);
    return found ? *found : std::nullopt;
}

// Each change: the row is made if missing (so that there is a row to lock), read with a lock,
// changed here and written back, all in one transaction.
bool AccountStore::changePair(const QString& account, const QString& client,
                              const Change<PairRecord>& change) {
    return m_database.transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!AccountDatabase::execute(
                db,
                u"INSERT INTO THROTTLE_PAIR (Account, Client, Failures, LastFailure, "
                "LockedUntil) VALUES (?, ?, 0, 0, 0) ON CONFLICT DO NOTHING"_s,
                account, client) ||
            !AccountDatabase::run(row,
                                  u"SELECT Failures, LastFailure, LockedUntil FROM THROTTLE_PAIR "
                                  "WHERE Account = ? AND Client = ?"_s +
                                      m_database.lockRows(),
                                  account, client) ||
            !row.next()) {
            return false;
        }
        PairRecord record{row.value(0).toLongLong(), row.value(1).toLongLong(),
                          row.value(2).toLongLong()};
        row.finish();
        return !change(record) ||
               AccountDatabase::execute(db,
                                        u"UPDATE THROTTLE_PAIR SET Failures = ?, LastFailure = ?, "
                                        "LockedUntil = ? WHERE Account = ? AND Client = ?"_s,
                                        record.failures, record.lastFailure, record.lockedUntil,
                                        account, client);
    });
}

bool AccountStore::changeAccount(const QString& account, const Change<AccountRecord>& change) {
    return m_database.transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!AccountDatabase::execute(
                db,
                u"INSERT INTO THROTTLE_ACCOUNT (Account, Failures, NextCheck, "
                "LastFailure) VALUES (?, 0, 0, 0) ON CONFLICT DO NOTHING"_s,
                account) ||
            !AccountDatabase::run(row,
                                  u"SELECT Failures, NextCheck, LastFailure FROM THROTTLE_ACCOUNT "
                                  "WHERE Account = ?"_s +
                                      m_database.lockRows(),
                                  account) ||
            !row.next()) {
            return false;
        }
        AccountRecord record{row.value(0).toLongLong(), row.value(1).toLongLong(),
                             row.value(2).toLongLong()};
        row.finish();
        return !change(record) ||
               AccountDatabase::execute(db,
                                        u"UPDATE THROTTLE_ACCOUNT SET Failures = ?, NextCheck = ?, "
                                        "LastFailure = ? WHERE Account = ?"_s,
                                        record.failures, record.nextCheck, record.lastFailure,
                                        account);
    });
}

bool AccountStore::changeSignUps(const QString& client, double tokens,
                                 const Change<SignUpRecord>& change) {
    return m_database.transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!AccountDatabase::execute(
                db,
                u"INSERT INTO SIGNUP_LIMIT (Client, Tokens, Updated) VALUES (?, ?, 0) "
                "ON CONFLICT DO NOTHING"_s,
                client, tokens) ||
            !AccountDatabase::run(row,
                                  u"SELECT Tokens, Updated FROM SIGNUP_LIMIT WHERE Client = ?"_s +
                                      m_database.lockRows(),
                                  client) ||
            !row.next()) {
            return false;
        }
        SignUpRecord record{row.value(0).toDouble(), row.value(1).toLongLong()};
        row.finish();
        return !change(record) ||
               AccountDatabase::execute(
                   db, u"UPDATE SIGNUP_LIMIT SET Tokens = ?, Updated = ? WHERE Client = ?"_s,
                   record.tokens, record.updated, client);
    });
}

bool AccountStore::forgetFailures(const QString& account, const QString& client) {
    QSqlDatabase db = m_database.connection();
    return AccountDatabase::execute(db,
                                    u"DELETE FROM THROTTLE_PAIR WHERE Account = ? AND Client = ?"_s,
                                    account, client) &&
           AccountDatabase::execute(db, u"DELETE FROM THROTTLE_ACCOUNT WHERE Account = ?"_s,
                                    account);
}

void AccountStore::forgetQuiet(qint64 now, qint64 quietSince, qint64 signUpsSince) {
    QSqlDatabase db = m_database.connection();
    AccountDatabase::execute(
        db, u"DELETE FROM THROTTLE_PAIR WHERE LastFailure < ? AND LockedUntil < ?"_s, quietSince,
        now);
    AccountDatabase::execute(
        db, u"DELETE FROM THROTTLE_ACCOUNT WHERE LastFailure < ? AND NextCheck < ?"_s, quietSince,
        now);
    AccountDatabase::execute(db, u"DELETE FROM SIGNUP_LIMIT WHERE Updated < ?"_s, signUpsSince);
}

QString AccountStore::copyFrom(AccountStore& from, QStringList* report) {
    return DatabaseCopy(from.m_database, m_database).run(report);
}
