#include "server/AccountStore.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QUrl>
#include <QUrlQuery>
#include <QVariant>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSqliteScheme = "sqlite:"_L1;
const QString kSqliteDriver = u"QSQLITE"_s;
const QString kPostgresDriver = u"QPSQL"_s;
// The command-line administration may work on the same file at the same moment; a short wait
// turns its brief lock into a delay instead of a failed statement.
const QString kSqliteOptions = u"QSQLITE_BUSY_TIMEOUT=2000"_s;
// Taken by whoever creates or updates the tables of a PostgreSQL database, for that transaction.
constexpr qint64 kMigrationLock = 0x6e69766f6778;  // "nivogx"

// A Qt SQL connection may only be used on the thread that made it. Each thread keeps its own,
// one per store, and closes them when it ends.
struct ThreadConnections {
    QHash<quint64, QString> names;  // by store
    // A statement failed on this thread: its PostgreSQL connection may be gone.
    bool failed = false;
    QString lastError;
    // Statements kept prepared, by connection and text (see Kept).
    QHash<QString, QHash<QString, QSqlQuery*>> kept;

    ThreadConnections() = default;
    ThreadConnections(const ThreadConnections&) = delete;
    ThreadConnections& operator=(const ThreadConnections&) = delete;
    ~ThreadConnections() {
        // At the process's end (the main thread's own, or a pool thread outliving the
        // application) Qt SQL's registry and drivers may be gone already; the system takes the
        // connections back anyway.
        if (QCoreApplication::instance() == nullptr) {
            return;
        }
        for (const QString& name : std::as_const(names)) {
            close(name);
        }
    }
    void forget(const QString& name) { qDeleteAll(kept.take(name)); }
    void close(const QString& name) {
        forget(name);
        QSqlDatabase::database(name, false).close();
        QSqlDatabase::removeDatabase(name);
    }
};

ThreadConnections& threadConnections() {
    thread_local ThreadConnections connections;
    return connections;
}

quint64 nextStoreId() {
    static QAtomicInteger<quint64> last;
    return ++last;
}

// Runs a statement with its values bound in order; the query is left on its first row, if any.
// Statements without values are not prepared: PostgreSQL prepares only queries and changes.
template <typename... Values>
bool run(QSqlQuery& query, const QString& sql, const Values&... values) {
    bool done = false;
    if constexpr (sizeof...(Values) == 0) {
        done = query.exec(sql);
    } else {
        done = query.prepare(sql) &&
               ((query.addBindValue(QVariant::fromValue(values)), ...), query.exec());
    }
    if (!done) {
        auto& connections = threadConnections();
        connections.failed = true;
        connections.lastError = query.lastError().text();
    }
    return done;
}

// Why the last statement on this thread, or else the connection, failed.
QString lastError(const QSqlDatabase& db) {
    const QString statement = threadConnections().lastError;
    return statement.isEmpty() ? db.lastError().text() : statement;
}

template <typename... Values>
bool execute(QSqlDatabase db, const QString& sql, const Values&... values) {
    QSqlQuery query(db);
    return db.isOpen() && run(query, sql, values...);
}

// Each table a copy carries over: its key columns first, then the others.
struct Table {
    const char* name;
    int keys;
    QStringList columns;
};

const Table kCopiedTables[] = {
    {"ACCOUNT",
     1,
     {u"LoginName"_s, u"FirstName"_s, u"LastName"_s, u"Email"_s, u"PasswordSalt"_s,
      u"PasswordHash"_s, u"PasswordIterations"_s, u"Pfx"_s, u"Cer"_s, u"Created"_s, u"Disabled"_s}},
    {"THROTTLE_PAIR",
     2,
     {u"Account"_s, u"Client"_s, u"Failures"_s, u"LastFailure"_s, u"LockedUntil"_s}},
    {"THROTTLE_ACCOUNT", 1, {u"Account"_s, u"Failures"_s, u"NextCheck"_s, u"LastFailure"_s}},
    {"SIGNUP_LIMIT", 1, {u"Client"_s, u"Tokens"_s, u"Updated"_s}},
};

}  // namespace

// A statement run with its values, prepared once per thread and connection and kept: PostgreSQL
// prepares on the server, so preparing and dropping it each time would take two more round
// trips. Its rows are let go when it goes out of scope.
class AccountStore::Kept {
public:
    template <typename... Values>
    Kept(const QSqlDatabase& db, const QString& sql, const Values&... values) {
        if (!db.isOpen()) {
            return;
        }
        auto& connections = threadConnections();
        auto& kept = connections.kept[db.connectionName()];
        QSqlQuery* query = kept.value(sql);
        if (query == nullptr) {
            query = new QSqlQuery(db);
            if (!query->prepare(sql)) {
                connections.failed = true;
                connections.lastError = query->lastError().text();
                delete query;
                return;
            }
            kept.insert(sql, query);
        }
        int at = 0;
        (query->bindValue(at++, QVariant::fromValue(values)), ...);
        if (!query->exec()) {
            connections.failed = true;
            connections.lastError = query->lastError().text();
            return;
        }
        m_query = query;
    }
    ~Kept() {
        if (m_query != nullptr) {
            m_query->finish();
        }
    }
    Kept(const Kept&) = delete;
    Kept& operator=(const Kept&) = delete;

    // False when the statement could not run.
    [[nodiscard]] bool ran() const { return m_query != nullptr; }
    // The next row, if the statement ran and has one.
    bool next() { return m_query != nullptr && m_query->next(); }
    [[nodiscard]] QVariant value(int column) const { return m_query->value(column); }

private:
    QSqlQuery* m_query = nullptr;
};

QString AccountStore::Location::display() const {
    if (engine == Engine::Sqlite) {
        return database;
    }
    return u"postgresql://%1%2%3/%4"_s.arg(user.isEmpty() ? QString() : user + u'@', host,
                                           port < 0 ? QString() : u':' + QString::number(port),
                                           database);
}

AccountStore::Location AccountStore::parseUrl(const QString& url) {
    Location location;
    if (const QString path = sqlitePath(url); !path.isEmpty()) {
        location.engine = Engine::Sqlite;
        location.database = path;
        location.options = kSqliteOptions;
        return location;
    }
    const QUrl parsed(url, QUrl::StrictMode);
    const QString database = parsed.path().mid(1);
    if (!parsed.isValid() ||
        (parsed.scheme() != "postgresql"_L1 && parsed.scheme() != "postgres"_L1) ||
        database.isEmpty() || database.contains(u'/') || parsed.hasFragment()) {
        return location;
    }
    location.database = database;
    location.host = parsed.host();
    location.port = parsed.port();
    location.user = parsed.userName();
    location.password = parsed.password();
    // libpq's own settings (sslmode, sslrootcert, connect_timeout, host=/socket/dir ...); a value
    // holding a blank or a ';' would be split.
    QStringList options;
    bool timeout = false;
    for (const auto& [key, value] : QUrlQuery(parsed).queryItems(QUrl::FullyDecoded)) {
        if (key.isEmpty() || value.isEmpty() ||
            (key + value).contains(QRegularExpression(u"[\\s;=']"_s))) {
            return {};
        }
        if (key == "host"_L1) {
            location.host = value;
            continue;
        }
        timeout |= key == "connect_timeout"_L1;
        options << key + u'=' + value;
    }
    if (!timeout) {
        options << u"connect_timeout=10"_s;
    }
    location.options = options.join(u';');
    location.engine = Engine::Postgres;
    return location;
}

QString AccountStore::sqliteUrl(const QString& path) {
    return QString(kSqliteScheme) + path;
}

QString AccountStore::sqlitePath(const QString& url) {
    if (!url.startsWith(kSqliteScheme)) {
        return {};
    }
    QString path = url.mid(kSqliteScheme.size());
    if (path.startsWith("//"_L1)) {  // sqlite:///var/lib/... as well as sqlite:/var/lib/...
        path = path.mid(2);
    }
    return path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
}

AccountStore::AccountStore(const QString& url, const QString& password)
    : m_id(nextStoreId()), m_location(parseUrl(url)) {
    if (!password.isEmpty()) {
        m_location.password = password;
    }
}

AccountStore::~AccountStore() {
    auto& connections = threadConnections();
    if (const QString name = connections.names.take(m_id); !name.isEmpty()) {
        connections.close(name);
    }
}

QSqlDatabase AccountStore::connection() {
    auto& connections = threadConnections();
    auto& names = connections.names;
    if (const auto known = names.constFind(m_id); known != names.cend()) {
        QSqlDatabase db = QSqlDatabase::database(*known);  // opens it again if it was closed
        // After a failure, a PostgreSQL connection that the server dropped is made anew, and
        // the statements prepared on it are prepared again: the driver may have opened a new
        // connection already.
        if (connections.failed && m_location.engine == Engine::Postgres) {
            connections.failed = false;
            connections.forget(*known);
            if (!db.isOpen() || !QSqlQuery(db).exec(u"SELECT 1"_s)) {
                db.close();
                db.open();
            }
        }
        return db;
    }
    const QString name = u"nivogx-accounts-%1"_s.arg(m_id) + u'-' +
                         QString::number(reinterpret_cast<quintptr>(&names), 16);
    names.insert(m_id, name);
    QSqlDatabase db = QSqlDatabase::addDatabase(
        m_location.engine == Engine::Postgres ? kPostgresDriver : kSqliteDriver, name);
    db.setDatabaseName(m_location.database);
    db.setConnectOptions(m_location.options);
    if (m_location.engine == Engine::Postgres) {
        db.setHostName(m_location.host);
        db.setPort(m_location.port);
        db.setUserName(m_location.user);
        db.setPassword(m_location.password);
    }
    db.open();
    return db;
}

QString AccountStore::lockRows() const {
    return m_location.engine == Engine::Postgres ? u" FOR UPDATE"_s : QString();
}

template <typename Work>
auto AccountStore::retried(Work work) -> decltype(work()) {
    auto result = work();
    if (!result && m_location.engine == Engine::Postgres) {
        result = work();
    }
    return result;
}

bool AccountStore::transaction(const std::function<bool(QSqlDatabase&)>& work) {
    // SQLite: the write lock from the start, so that reading before writing cannot deadlock.
    const QString begin = m_location.engine == Engine::Sqlite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s;
    QSqlDatabase db;
    if (!retried([&] { return execute(db = connection(), begin); })) {
        return false;
    }
    if (work(db) && execute(db, u"COMMIT"_s)) {
        return true;
    }
    execute(db, u"ROLLBACK"_s);
    return false;
}

bool AccountStore::open() {
    m_error.clear();
    threadConnections().lastError.clear();
    const QString where = m_location.display();
    if (!m_location.isValid()) {
        m_error = u"the database URL is not of the form %1"_s.arg(QLatin1StringView(kUrlForms));
        return false;
    }
    const bool sqlite = m_location.engine == Engine::Sqlite;
    if (!QSqlDatabase::isDriverAvailable(sqlite ? kSqliteDriver : kPostgresDriver)) {
        m_error = sqlite
                      ? u"Qt SQL has no SQLite driver; install the package libqt6sql6-sqlite"_s
                      : u"Qt SQL has no PostgreSQL driver; install the package libqt6sql6-psql"_s;
        return false;
    }
    // Created owner-only before SQLite sees it; SQLite gives its journal files the same mode.
    if (sqlite && !QFile::exists(m_location.database)) {
        QFile file(m_location.database);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
            m_error = u"cannot create the account database %1"_s.arg(where);
            return false;
        }
    }
    QSqlDatabase db = connection();
    if (!db.isOpen()) {
        m_error = u"cannot open the account database %1: %2"_s.arg(where, db.lastError().text());
        return false;
    }
    // One writer at a time from the start, so that two servers opening the same old database do
    // not both update it.
    if (!execute(db, sqlite ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s) ||
        (!sqlite && (!execute(db, u"SET LOCAL client_min_messages = warning"_s) ||
                     !execute(db, u"SELECT pg_advisory_xact_lock(?)"_s, kMigrationLock)))) {
        m_error = u"cannot lock the account database %1: %2"_s.arg(where, lastError(db));
        execute(db, u"ROLLBACK"_s);
        return false;
    }
    m_error = migrate(db);
    if (!execute(db, m_error.isEmpty() ? u"COMMIT"_s : u"ROLLBACK"_s) && m_error.isEmpty()) {
        m_error = u"cannot update the account database %1: %2"_s.arg(where, lastError(db));
    }
    return m_error.isEmpty();
}

// Brings the tables from their recorded version to kSchemaVersion, inside the caller's
// transaction; empty when done, else why not.
QString AccountStore::migrate(QSqlDatabase& db) {
    const QString where = m_location.display();
    const auto failed = [&](const char* what) {
        return u"cannot %1 in the account database %2: %3"_s.arg(QLatin1StringView(what), where,
                                                                 lastError(db));
    };
    const bool sqlite = m_location.engine == Engine::Sqlite;
    // A database from before versions were recorded counts as version 0.
    QSqlQuery query(db);
    if (!execute(db, u"CREATE TABLE IF NOT EXISTS SCHEMA_VERSION (Version INTEGER NOT NULL)"_s) ||
        !run(query, u"SELECT MAX(Version) FROM SCHEMA_VERSION"_s) || !query.next()) {
        return failed("read the schema version");
    }
    const bool recorded = !query.value(0).isNull();
    const int version = query.value(0).toInt();
    query.finish();
    if (!recorded && !execute(db, u"INSERT INTO SCHEMA_VERSION (Version) VALUES (0)"_s)) {
        return failed("record the schema version");
    }
    if (version > kSchemaVersion) {
        return u"the account database %1 has tables of version %2, newer than this nivogx-server "
               "knows (%3); run the newer nivogx-server that wrote it, or restore a backup"_s
                   .arg(where)
                   .arg(version)
                   .arg(kSchemaVersion);
    }
    const QString blob = sqlite ? u"BLOB"_s : u"BYTEA"_s;
    if (version < 1) {
        // The accounts table, which a database from before versions may have without the
        // Disabled column.
        const QString created = sqlite
                                    ? u"CURRENT_TIMESTAMP"_s
                                    : u"to_char(timezone('UTC', now()), 'YYYY-MM-DD HH24:MI:SS')"_s;
        if (!execute(db,
                     u"CREATE TABLE IF NOT EXISTS ACCOUNT (LoginName TEXT PRIMARY KEY, "
                     "FirstName TEXT, LastName TEXT, Email TEXT, PasswordSalt %1, "
                     "PasswordHash %1, PasswordIterations INTEGER, Pfx %1, Cer %1, "
                     "Created TEXT DEFAULT %2, Disabled INTEGER NOT NULL DEFAULT 0)"_s.arg(
                         blob, created))) {
            return failed("create the accounts table");
        }
        if (sqlite && !db.record(u"ACCOUNT"_s).contains(u"Disabled"_s) &&
            !execute(db, u"ALTER TABLE ACCOUNT ADD COLUMN Disabled INTEGER NOT NULL DEFAULT 0"_s)) {
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
            if (!execute(db, statement)) {
                return failed("create the counters");
            }
        }
    }
    if (version < kSchemaVersion &&
        !execute(db, u"UPDATE SCHEMA_VERSION SET Version = ?"_s, kSchemaVersion)) {
        return failed("record the schema version");
    }
    return {};
}

bool AccountStore::isHealthy() {
    QSqlDatabase db = connection();
    QSqlQuery query(db);
    return db.isOpen() && run(query, u"SELECT COUNT(*) FROM ACCOUNT"_s) && query.next();
}

bool AccountStore::insert(const Account& account) {
    return retried([&] {
        return execute(connection(),
                       u"INSERT INTO ACCOUNT (LoginName, FirstName, LastName, Email, PasswordSalt, "
                       "PasswordHash, PasswordIterations, Pfx, Cer) VALUES (?,?,?,?,?,?,?,?,?)"_s,
                       account.loginName.toLower(), account.firstName, account.lastName,
                       account.email, account.password.salt, account.password.hash,
                       static_cast<qint64>(account.password.iterations), account.pfx,
                       account.certificate);
    });
}

template <typename Read, typename... Values>
auto AccountStore::lookUp(const QString& sql, Read read, const Values&... values)
    -> std::optional<decltype(read(std::declval<Kept&>()))> {
    return retried([&]() -> std::optional<decltype(read(std::declval<Kept&>()))> {
        Kept row(connection(), sql, values...);
        if (!row.ran()) {
            return std::nullopt;
        }
        return read(row);
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
    return retried([&] {
        return execute(connection(),
                       u"UPDATE ACCOUNT SET PasswordSalt = ?, PasswordHash = ?, "
                       "PasswordIterations = ?, Pfx = ? WHERE LoginName = ?"_s,
                       password.salt, password.hash, static_cast<qint64>(password.iterations), pfx,
                       loginName.toLower());
    });
}

std::optional<quint64> AccountStore::nextCertificateNumber() {
    return retried([this]() -> std::optional<quint64> {
        QSqlDatabase db = connection();
        QSqlQuery row(db);
        // One statement: the row stays locked from the increment to the answer.
        if (!db.isOpen() ||
            !run(row,
                 u"INSERT INTO CERTIFICATE_COUNTER (Id, Issued) VALUES (1, 1) ON CONFLICT (Id) "
                 "DO UPDATE SET Issued = CERTIFICATE_COUNTER.Issued + 1 RETURNING Issued"_s) ||
            !row.next()) {
            return std::nullopt;
        }
        return row.value(0).toULongLong();
    });
}

QList<AccountStore::Listed> AccountStore::list() {
    QSqlDatabase db = connection();
    QSqlQuery row(db);
    QList<Listed> accounts;
    if (db.isOpen() &&
        run(row, u"SELECT LoginName, Email, Created, Disabled FROM ACCOUNT ORDER BY LoginName"_s)) {
        while (row.next()) {
            accounts.append({row.value(0).toString(), row.value(1).toString(),
                             row.value(2).toString(), row.value(3).toInt() != 0});
        }
    }
    return accounts;
}

bool AccountStore::setDisabled(const QString& loginName, bool disabled) {
    QSqlDatabase db = connection();
    QSqlQuery query(db);
    return db.isOpen() &&
           run(query, u"UPDATE ACCOUNT SET Disabled = ? WHERE LoginName = ?"_s,
               static_cast<qint64>(disabled ? 1 : 0), loginName.toLower()) &&
           query.numRowsAffected() > 0;
}

bool AccountStore::remove(const QString& loginName) {
    QSqlDatabase db = connection();
    QSqlQuery query(db);
    return db.isOpen() &&
           run(query, u"DELETE FROM ACCOUNT WHERE LoginName = ?"_s, loginName.toLower()) &&
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
    return transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!execute(db,
                     u"INSERT INTO THROTTLE_PAIR (Account, Client, Failures, LastFailure, "
                     "LockedUntil) VALUES (?, ?, 0, 0, 0) ON CONFLICT DO NOTHING"_s,
                     account, client) ||
            !run(row,
                 u"SELECT Failures, LastFailure, LockedUntil FROM THROTTLE_PAIR "
                 "WHERE Account = ? AND Client = ?"_s +
                     lockRows(),
                 account, client) ||
            !row.next()) {
            return false;
        }
        PairRecord record{row.value(0).toLongLong(), row.value(1).toLongLong(),
                          row.value(2).toLongLong()};
        row.finish();
        return !change(record) ||
               execute(db,
                       u"UPDATE THROTTLE_PAIR SET Failures = ?, LastFailure = ?, "
                       "LockedUntil = ? WHERE Account = ? AND Client = ?"_s,
                       record.failures, record.lastFailure, record.lockedUntil, account, client);
    });
}

bool AccountStore::changeAccount(const QString& account, const Change<AccountRecord>& change) {
    return transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!execute(db,
                     u"INSERT INTO THROTTLE_ACCOUNT (Account, Failures, NextCheck, "
                     "LastFailure) VALUES (?, 0, 0, 0) ON CONFLICT DO NOTHING"_s,
                     account) ||
            !run(row,
                 u"SELECT Failures, NextCheck, LastFailure FROM THROTTLE_ACCOUNT "
                 "WHERE Account = ?"_s +
                     lockRows(),
                 account) ||
            !row.next()) {
            return false;
        }
        AccountRecord record{row.value(0).toLongLong(), row.value(1).toLongLong(),
                             row.value(2).toLongLong()};
        row.finish();
        return !change(record) ||
               execute(db,
                       u"UPDATE THROTTLE_ACCOUNT SET Failures = ?, NextCheck = ?, "
                       "LastFailure = ? WHERE Account = ?"_s,
                       record.failures, record.nextCheck, record.lastFailure, account);
    });
}

bool AccountStore::changeSignUps(const QString& client, double tokens,
                                 const Change<SignUpRecord>& change) {
    return transaction([&](QSqlDatabase& db) {
        QSqlQuery row(db);
        if (!execute(db,
                     u"INSERT INTO SIGNUP_LIMIT (Client, Tokens, Updated) VALUES (?, ?, 0) "
                     "ON CONFLICT DO NOTHING"_s,
                     client, tokens) ||
            !run(row, u"SELECT Tokens, Updated FROM SIGNUP_LIMIT WHERE Client = ?"_s + lockRows(),
                 client) ||
            !row.next()) {
            return false;
        }
        SignUpRecord record{row.value(0).toDouble(), row.value(1).toLongLong()};
        row.finish();
        return !change(record) ||
               execute(db, u"UPDATE SIGNUP_LIMIT SET Tokens = ?, Updated = ? WHERE Client = ?"_s,
                       record.tokens, record.updated, client);
    });
}

bool AccountStore::forgetFailures(const QString& account, const QString& client) {
    QSqlDatabase db = connection();
    return execute(db, u"DELETE FROM THROTTLE_PAIR WHERE Account = ? AND Client = ?"_s, account,
                   client) &&
           execute(db, u"DELETE FROM THROTTLE_ACCOUNT WHERE Account = ?"_s, account);
}

void AccountStore::forgetQuiet(qint64 now, qint64 quietSince, qint64 signUpsSince) {
    QSqlDatabase db = connection();
    execute(db, u"DELETE FROM THROTTLE_PAIR WHERE LastFailure < ? AND LockedUntil < ?"_s,
            quietSince, now);
    execute(db, u"DELETE FROM THROTTLE_ACCOUNT WHERE LastFailure < ? AND NextCheck < ?"_s,
            quietSince, now);
    execute(db, u"DELETE FROM SIGNUP_LIMIT WHERE Updated < ?"_s, signUpsSince);
}

QString AccountStore::copyFrom(AccountStore& from, QStringList* report) {
    QSqlDatabase source = from.connection();
    if (!source.isOpen()) {
        return u"cannot open %1: %2"_s.arg(from.display(), source.lastError().text());
    }
    QString problem;
    QStringList lines;
    const bool done = transaction([&](QSqlDatabase& db) {
        for (const Table& table : kCopiedTables) {
            const QString name = QLatin1StringView(table.name);
            const QStringList keys = table.columns.mid(0, table.keys);
            QStringList marks;
            marks.fill(u"?"_s, table.columns.size());
            QSqlQuery insert(db);
            QSqlQuery rows(source);
            if (!insert.prepare(u"INSERT INTO %1 (%2) VALUES (%3) ON CONFLICT DO NOTHING"_s.arg(
                    name, table.columns.join(u", "_s), marks.join(u", "_s))) ||
                !rows.exec(u"SELECT %1 FROM %2"_s.arg(table.columns.join(u", "_s), name))) {
                problem = u"cannot read or write %1: %2 %3"_s.arg(name, rows.lastError().text(),
                                                                  insert.lastError().text());
                return false;
            }
            int copied = 0;
            int there = 0;
            while (rows.next()) {
                for (int i = 0; i < table.columns.size(); ++i) {
                    insert.bindValue(i, rows.value(i));
                }
                if (!insert.exec()) {
                    problem = u"cannot copy into %1: %2"_s.arg(name, insert.lastError().text());
                    return false;
                }
                (insert.numRowsAffected() > 0 ? copied : there) += 1;
            }
            // Every row of the source is in the target now, under its key.
            QSqlQuery count(db);
            if (!count.exec(u"SELECT COUNT(*) FROM %1"_s.arg(name)) || !count.next() ||
                count.value(0).toInt() < copied + there) {
                problem = u"%1: the copy has fewer rows than the source"_s.arg(name);
                return false;
            }
            lines << u"%1: %2 copied, %3 already there, %4 in all"_s.arg(name.toLower())
                         .arg(copied)
                         .arg(there)
                         .arg(count.value(0).toInt());
        }
        // Serial numbers go on from the larger of the two counters.
        QSqlQuery counter(source);
        if (!counter.exec(u"SELECT Issued FROM CERTIFICATE_COUNTER WHERE Id = 1"_s) ||
            !counter.next() ||
            !execute(db, u"UPDATE CERTIFICATE_COUNTER SET Issued = ? WHERE Id = 1 AND Issued < ?"_s,
                     counter.value(0).toLongLong(), counter.value(0).toLongLong())) {
            problem = u"cannot carry over the certificate counter"_s;
            return false;
        }
        lines << u"certificate counter: at least %1"_s.arg(counter.value(0).toLongLong());
        return true;
    });
    if (!done) {
        return problem.isEmpty() ? u"cannot write %1: %2"_s.arg(display(), lastError(connection()))
                                 : problem;
    }
    if (report != nullptr) {
        *report = lines;
    }
    return {};
}
