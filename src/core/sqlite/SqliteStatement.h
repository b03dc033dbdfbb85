#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <memory>
#include <vector>

struct sqlite3_stmt;

// One prepared statement of an open SqliteDatabase. Parameters are bound by position (1-based,
// as SQLite counts them); columns of the current row are read by name, ignoring ASCII case.
// A column that the statement does not have reads as 0, a null string or null bytes.
class SqliteStatement {
public:
    SqliteStatement() = default;

    // False when preparing failed; the database's last error message says why.
    [[nodiscard]] bool isValid() const noexcept { return m_statement != nullptr; }

    // A null QString or QByteArray binds SQL NULL; an empty one binds an empty value.
    void bind(int index, qint64 value);
    void bind(int index, const QString& value);
    void bind(int index, const QByteArray& value);
    // A C string would silently bind as a blob.
    void bind(int index, const char* value) = delete;

    template <typename... Values>
    void bindAll(const Values&... values) {
        int index = 0;
        (bind(++index, values), ...);
    }

    // Advances to the next row: true while there is one. At the end, or on an error, the
    // statement is reset so that the connection's last error message tells which it was.
    [[nodiscard]] bool next();
    // Runs a statement that returns no rows; true when it completed.
    bool execute();

    [[nodiscard]] int columnInt(const char* name) const;
    [[nodiscard]] qint64 columnInt64(const char* name) const;
    [[nodiscard]] QString columnText(const char* name) const;
    [[nodiscard]] QByteArray columnBlob(const char* name) const;

    // How the current row stores a column's value; Missing when the statement has no such column.
    enum class Kind { Missing, Null, Integer, Float, Text, Blob };
    [[nodiscard]] Kind columnKind(const char* name) const;
    // The size in bytes of a text or blob value, without reading it.
    [[nodiscard]] qint64 columnBytes(const char* name) const;

private:
    friend class SqliteDatabase;
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };

    explicit SqliteStatement(sqlite3_stmt* statement);
    [[nodiscard]] int columnIndex(const char* name) const;

    std::unique_ptr<sqlite3_stmt, Finalizer> m_statement;
    std::vector<QByteArray> m_columnNames;
};
