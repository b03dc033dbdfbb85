#pragma once

#include <QString>
#include <QtGlobal>
#include <memory>

#include "sqlite/SqlText.h"
#include "sqlite/SqliteStatement.h"

struct sqlite3;

// One connection to an SQLite database file, closed when the object goes. Statements must not
// outlive the connection that prepared them.
class SqliteDatabase {
public:
    enum class Mode {
        ReadWriteCreate,  // the file is created when absent
        ReadOnly,         // the file must already exist; nothing is written to it or next to
                          // it; it may come from anywhere, so its views are refused
    };

    SqliteDatabase(const QString& path, Mode mode);

    [[nodiscard]] bool isOpen() const noexcept { return m_connection != nullptr; }

    // An invalid statement when the connection is closed or the text does not prepare.
    [[nodiscard]] SqliteStatement prepare(SqlText sql);

    // Prepares, binds the values in order and runs a statement that returns no rows.
    template <typename... Values>
    bool execute(SqlText sql, const Values&... values) {
        SqliteStatement statement = prepare(sql);
        if (!statement.isValid()) {
            return false;
        }
        statement.bindAll(values...);
        return statement.execute();
    }

    // Prepares a query and binds the values in order; iterate with next().
    template <typename... Values>
    [[nodiscard]] SqliteStatement query(SqlText sql, const Values&... values) {
        SqliteStatement statement = prepare(sql);
        if (statement.isValid()) {
            statement.bindAll(values...);
        }
        return statement;
    }

    [[nodiscard]] qint64 lastInsertRowId() const noexcept;
    // SQLite's own text for the connection's latest outcome; noErrorMessage() after success.
    [[nodiscard]] QString lastErrorMessage() const;
    // The text SQLite gives for "no error" (passed through to callers as it stands).
    [[nodiscard]] static QString noErrorMessage();

private:
    struct Closer {
        void operator()(sqlite3* connection) const noexcept;
    };

    std::unique_ptr<sqlite3, Closer> m_connection;
};
