#include "server/AccountDatabase.h"

#include <QAtomicInteger>
#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QSqlError>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kSqliteDriver = u"QSQLITE"_s;
const QString kPostgresDriver = u"QPSQL"_s;

// Each thread keeps its own connections, one per database object, and closes them when it ends.
struct ThreadConnections {
    QHash<quint64, QString> names;  // by database object
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

quint64 nextDatabaseId() {
    static QAtomicInteger<quint64> last;
    return ++last;
}

}  // namespace

AccountDatabase::AccountDatabase(DatabaseLocation location)
    : m_id(nextDatabaseId()), m_location(std::move(location)) {}

AccountDatabase::~AccountDatabase() {
    auto& connections = threadConnections();
    if (const QString name = connections.names.take(m_id); !name.isEmpty()) {
        connections.close(name);
    }
}

QString AccountDatabase::open() {
    threadConnections().lastError.clear();
    const QString where = m_location.display();
    if (!m_location.isValid()) {
        return u"the database URL is not of the form %1"_s.arg(
            QLatin1StringView(DatabaseLocation::kUrlForms));
    }
    if (!QSqlDatabase::isDriverAvailable(isSqlite() ? kSqliteDriver : kPostgresDriver)) {
        return isSqlite()
                   ? u"Qt SQL has no SQLite driver; install the package libqt6sql6-sqlite"_s
                   : u"Qt SQL has no PostgreSQL driver; install the package libqt6sql6-psql"_s;
    }
    // Created owner-only before SQLite sees it; SQLite gives its journal files the same mode.
    if (isSqlite() && !QFile::exists(m_location.database)) {
        QFile file(m_location.database);
        if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) ||
            !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)) {
            return u"cannot create the account database %1"_s.arg(where);
        }
    }
    if (const QSqlDatabase db = connection(); !db.isOpen()) {
        return u"cannot open the account database %1: %2"_s.arg(where, db.lastError().text());
    }
    return {};
}

QSqlDatabase AccountDatabase::connection() {
    auto& connections = threadConnections();
    auto& names = connections.names;
    if (const auto known = names.constFind(m_id); known != names.cend()) {
        QSqlDatabase db = QSqlDatabase::database(*known);  // opens it again if it was closed
        // After a failure, a PostgreSQL connection that the server dropped is made anew, and
        // the statements prepared on it are prepared again: the driver may have opened a new
        // connection already.
        if (connections.failed && isPostgres()) {
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
    QSqlDatabase db =
        QSqlDatabase::addDatabase(isPostgres() ? kPostgresDriver : kSqliteDriver, name);
    db.setDatabaseName(m_location.database);
    db.setConnectOptions(m_location.options);
    if (isPostgres()) {
        db.setHostName(m_location.host);
        db.setPort(m_location.port);
        db.setUserName(m_location.user);
        db.setPassword(m_location.password);
    }
    db.open();
    return db;
}

void AccountDatabase::noteFailure(const QSqlQuery& query) {
    auto& connections = threadConnections();
    connections.failed = true;
    connections.lastError = query.lastError().text();
}

QString AccountDatabase::lastError(const QSqlDatabase& db) {
    const QString statement = threadConnections().lastError;
    return statement.isEmpty() ? db.lastError().text() : statement;
}

QString AccountDatabase::lockRows() const {
    return isPostgres() ? u" FOR UPDATE"_s : QString();
}

bool AccountDatabase::transaction(const std::function<bool(QSqlDatabase&)>& work) {
    // SQLite: the write lock from the start, so that reading before writing cannot deadlock.
    const QString begin = isSqlite() ? u"BEGIN IMMEDIATE"_s : u"BEGIN"_s;
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

QSqlQuery* AccountDatabase::Kept::prepared(const QSqlDatabase& db, const QString& sql) {
    if (!db.isOpen()) {
        return nullptr;
    }
    auto& kept = threadConnections().kept[db.connectionName()];
    QSqlQuery* query = kept.value(sql);
    if (query == nullptr) {
        query = new QSqlQuery(db);
        if (!query->prepare(sql)) {
            noteFailure(*query);
            delete query;
            return nullptr;
        }
        kept.insert(sql, query);
    }
    return query;
}
