#include "server/AccountStore.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QVariant>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr auto kSqliteScheme = "sqlite:"_L1;
const QString kDriver = u"QSQLITE"_s;
// The command-line administration may work on the same file at the same moment; a short wait
// turns its brief lock into a delay instead of a failed statement.
const QString kConnectOptions = u"QSQLITE_BUSY_TIMEOUT=2000"_s;

// A Qt SQL connection may only be used on the thread that made it. Each thread keeps its own,
// one per store, and closes them when it ends.
struct ThreadConnections {
    QHash<quint64, QString> names;  // by store

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
    static void close(const QString& name) {
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
template <typename... Values>
bool run(QSqlQuery& query, const QString& sql, const Values&... values) {
    if (!query.prepare(sql)) {
        return false;
    }
    (query.addBindValue(QVariant::fromValue(values)), ...);
    return query.exec();
}

template <typename... Values>
bool execute(QSqlDatabase db, const QString& sql, const Values&... values) {
    QSqlQuery query(db);
    return db.isOpen() && run(query, sql, values...);
}

}  // namespace

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

AccountStore::AccountStore(QString url) : m_id(nextStoreId()), m_path(sqlitePath(url)) {}

AccountStore::~AccountStore() {
    auto& connections = threadConnections();
    if (const QString name = connections.names.take(m_id); !name.isEmpty()) {
        ThreadConnections::close(name);
    }
}

QSqlDatabase AccountStore::connection() {
    auto& names = threadConnections().names;
    if (const auto known = names.constFind(m_id); known != names.cend()) {
        return QSqlDatabase::database(*known);  // opens it again if it was closed
    }
    const QString name = u"nivogx-accounts-%1"_s.arg(m_id) + u'-' +
                         QString::number(reinterpret_cast<quintptr>(&names), 16);
    names.insert(m_id, name);
    QSqlDatabase db = QSqlDatabase::addDatabase(kDriver, name);
    db.setDatabaseName(m_path);
    db.setConnectOptions(kConnectOptions);
    db.open();
    return db;
}

bool AccountStore::open() {
    m_error.clear();
    if (m_path.isEmpty()) {
        m_error = u"the database URL is not of the form sqlite:/path/accounts.db"_s;
        return false;
    }
    if (!QSqlDatabase::isDriverAvailable(kDriver)) {
        m_error = u"Qt SQL has no SQLite driver; install the package libqt6sql6-sqlite"_s;
        return false;
    }
    // Created owner-only before SQLite sees it; SQLite gives its journal files the same mode.
    if (!QFile::exists(m_path)) {
        QFile file(m_path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
            m_error = u"cannot create the account database %1"_s.arg(m_path);
            return false;
        }
    }
    QSqlDatabase db = connection();
    if (!db.isOpen()) {
        m_error = u"cannot open the account database %1: %2"_s.arg(m_path, db.lastError().text());
        return false;
    }
    // One writer at a time from the start, so that two servers opening the same old file do not
    // both update it.
    if (!execute(db, u"BEGIN IMMEDIATE"_s)) {
        m_error = u"cannot lock the account database %1: %2"_s.arg(m_path, db.lastError().text());
        return false;
    }
    m_error = migrate(db);
    if (!execute(db, m_error.isEmpty() ? u"COMMIT"_s : u"ROLLBACK"_s) && m_error.isEmpty()) {
        m_error = u"cannot update the account database %1: %2"_s.arg(m_path, db.lastError().text());
    }
    return m_error.isEmpty();
}

// Brings the tables from their recorded version to kSchemaVersion, inside the caller's
// transaction; empty when done, else why not.
QString AccountStore::migrate(QSqlDatabase& db) {
    const auto failed = [&](const char* what) {
        return u"cannot %1 in the account database %2: %3"_s.arg(QLatin1StringView(what), m_path,
                                                                  db.lastError().text());
    };
    int version = 0;  // also a database from before versions were recorded
    if (db.tables().contains(u"SCHEMA_VERSION"_s, Qt::CaseInsensitive)) {
        QSqlQuery query(db);
        if (!run(query, u"SELECT MAX(Version) FROM SCHEMA_VERSION"_s) || !query.next()) {
            return failed("read the schema version");
        }
        version = query.value(0).toInt();
    } else if (!execute(db, u"CREATE TABLE SCHEMA_VERSION (Version INTEGER NOT NULL)"_s) ||
               !execute(db, u"INSERT INTO SCHEMA_VERSION (Version) VALUES (0)"_s)) {
        return failed("record the schema version");
    }
    if (version > kSchemaVersion) {
        return u"the account database %1 has tables of version %2, newer than this nivogx-server "
               "knows (%3); run the newer nivogx-server that wrote it, or restore a backup"_s
            .arg(m_path)
            .arg(version)
            .arg(kSchemaVersion);
    }
    if (version < 1) {
        // The accounts table, which a database from before versions may have without the
        // Disabled column.
        if (!execute(db, u"CREATE TABLE IF NOT EXISTS ACCOUNT (LoginName TEXT PRIMARY KEY, "
                         "FirstName TEXT, LastName TEXT, Email TEXT, PasswordSalt BLOB, "
                         "PasswordHash BLOB, PasswordIterations INTEGER, Pfx BLOB, Cer BLOB, "
                         "Created TEXT DEFAULT CURRENT_TIMESTAMP, "
                         "Disabled INTEGER NOT NULL DEFAULT 0)"_s)) {
            return failed("create the accounts table");
        }
        if (!db.record(u"ACCOUNT"_s).contains(u"Disabled"_s) &&
            !execute(db, u"ALTER TABLE ACCOUNT ADD COLUMN Disabled INTEGER NOT NULL DEFAULT 0"_s)) {
            return failed("add the Disabled column");
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
    return execute(connection(),
                   u"INSERT INTO ACCOUNT (LoginName, FirstName, LastName, Email, PasswordSalt, "
                   "PasswordHash, PasswordIterations, Pfx, Cer) VALUES (?,?,?,?,?,?,?,?,?)"_s,
                   account.loginName.toLower(), account.firstName, account.lastName, account.email,
                   account.password.salt, account.password.hash,
                   static_cast<qint64>(account.password.iterations), account.pfx,
                   account.certificate);
}

std::optional<AccountStore::Account> AccountStore::find(const QString& loginName) {
    QSqlDatabase db = connection();
    QSqlQuery row(db);
    if (!db.isOpen() ||
        !run(row,
             u"SELECT LoginName, FirstName, LastName, Email, PasswordSalt, PasswordHash, "
             "PasswordIterations, Pfx, Cer, Disabled FROM ACCOUNT WHERE LoginName = ?"_s,
             loginName.toLower()) ||
        !row.next()) {
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
}

bool AccountStore::exists(const QString& loginName) {
    QSqlDatabase db = connection();
    QSqlQuery row(db);
    return db.isOpen() &&
           run(row, u"SELECT 1 FROM ACCOUNT WHERE LoginName = ?"_s, loginName.toLower()) &&
           row.next();
}

bool AccountStore::updateCredentials(const QString& loginName,
                                     const AccountAuthority::PasswordHash& password,
                                     const QByteArray& pfx) {
    return execute(connection(),
                   u"UPDATE ACCOUNT SET PasswordSalt = ?, PasswordHash = ?, "
                   "PasswordIterations = ?, Pfx = ? WHERE LoginName = ?"_s,
                   password.salt, password.hash, static_cast<qint64>(password.iterations), pfx,
                   loginName.toLower());
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
