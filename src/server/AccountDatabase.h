#pragma once

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QVariant>
#include <functional>

#include "server/DatabaseLocation.h"

// The account database as each thread reaches it. A Qt SQL connection may only be used on the
// thread that made it, so every thread that calls in gets a connection of its own, closed when the
// thread ends; a PostgreSQL connection that was lost is made again on the next call.
class AccountDatabase {
public:
    explicit AccountDatabase(DatabaseLocation location);
    // Closes this thread's connection; other threads close theirs when they end.
    ~AccountDatabase();
    AccountDatabase(const AccountDatabase&) = delete;
    AccountDatabase& operator=(const AccountDatabase&) = delete;

    [[nodiscard]] const DatabaseLocation& location() const { return m_location; }
    [[nodiscard]] bool isSqlite() const {
        return m_location.engine == DatabaseLocation::Engine::Sqlite;
    }
    [[nodiscard]] bool isPostgres() const {
        return m_location.engine == DatabaseLocation::Engine::Postgres;
    }

    // Opens this thread's connection, creating an SQLite file owner-only first; empty when done,
    // else why the database cannot be reached.
    [[nodiscard]] QString open();
    // This thread's open connection to the database (invalid when it cannot be opened).
    QSqlDatabase connection();

    class Kept;

    // Runs a statement with its values bound in order; the query is left on its first row, if
    // any. Statements without values are not prepared: PostgreSQL prepares only queries and
    // changes.
    template <typename... Values>
    static bool run(QSqlQuery& query, const QString& sql, const Values&... values) {
        bool done = false;
        if constexpr (sizeof...(Values) == 0) {
            done = query.exec(sql);
        } else {
            done = query.prepare(sql) &&
                   ((query.addBindValue(QVariant::fromValue(values)), ...), query.exec());
        }
        if (!done) {
            noteFailure(query);
        }
        return done;
    }
    template <typename... Values>
    static bool execute(QSqlDatabase db, const QString& sql, const Values&... values) {
        QSqlQuery query(db);
        return db.isOpen() && run(query, sql, values...);
    }
    // Why the last statement on this thread, or else the connection, failed.
    [[nodiscard]] static QString lastError(const QSqlDatabase& db);

    // Runs `work` once more when it failed on PostgreSQL: the first statement after the database
    // dropped a connection fails, and connection() then makes it anew.
    template <typename Work>
    auto retried(Work work) -> decltype(work()) {
        auto result = work();
        if (!result && isPostgres()) {
            result = work();
        }
        return result;
    }
    // Runs `work` in a transaction that holds off other writers of the rows it locks; false, and
    // rolled back, when work or the commit fails.
    bool transaction(const std::function<bool(QSqlDatabase&)>& work);
    // Appended to a SELECT whose rows the transaction is about to change.
    [[nodiscard]] QString lockRows() const;

private:
    // A statement failed on this thread: its PostgreSQL connection may be gone.
    static void noteFailure(const QSqlQuery& query);

    const quint64 m_id;  // names this database's connections; never reused
    DatabaseLocation m_location;
};

// A statement run with its values, prepared once per thread and connection and kept: PostgreSQL
// prepares on the server, so preparing and dropping it each time would take two more round
// trips. Its rows are let go when it goes out of scope.
class AccountDatabase::Kept {
public:
    template <typename... Values>
    Kept(const QSqlDatabase& db, const QString& sql, const Values&... values) {
        QSqlQuery* query = prepared(db, sql);
        if (query == nullptr) {
            return;
        }
        int at = 0;
        (query->bindValue(at++, QVariant::fromValue(values)), ...);
        if (!query->exec()) {
            noteFailure(*query);
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
    // This thread's statement for `sql` on `db`, prepared when first used; null when the
    // connection is closed or the statement cannot be prepared.
    static QSqlQuery* prepared(const QSqlDatabase& db, const QString& sql);

    QSqlQuery* m_query = nullptr;
};
