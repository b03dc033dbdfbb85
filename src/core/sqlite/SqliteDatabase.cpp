#include "sqlite/SqliteDatabase.h"

#include <sqlite3.h>

#include <QFile>
#include <QFileInfo>
#include <QUrl>

void SqliteDatabase::Closer::operator()(sqlite3* connection) const noexcept {
    // Waits for any statement still alive instead of failing with "busy".
    sqlite3_close_v2(connection);
}

namespace {

// A file from outside is opened as one that cannot change. SQLite then writes nothing next to
// it: a database in WAL mode would otherwise leave "-wal" and "-shm" files in the user's folder.
QByteArray unchangeableFileUri(const QString& path) {
    return QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded() + "?immutable=1";
}

}  // namespace

SqliteDatabase::SqliteDatabase(const QString& path, Mode mode) {
    const bool readOnly = mode == Mode::ReadOnly;
    const int flags = readOnly ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI
                               : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const QByteArray name = readOnly ? unchangeableFileUri(path) : QFile::encodeName(path);
    sqlite3* connection = nullptr;
    const int result = sqlite3_open_v2(name.constData(), &connection, flags, nullptr);
    // SQLite hands out a connection object even when opening fails; it still has to be closed.
    std::unique_ptr<sqlite3, Closer> owned(connection);
    if (result == SQLITE_OK) {
        // The command-line tool may work on the same file at the same moment; a short wait
        // turns its brief lock into a delay instead of a failed statement.
        constexpr int kBusyTimeoutMs = 2000;
        sqlite3_busy_timeout(owned.get(), kBusyTimeoutMs);
        if (readOnly) {
            // A file opened read-only comes from outside (a backup, a profile file) and its
            // schema may be anyone's. Our files hold tables only; a view named like one of our
            // tables could run without end (a recursive query) behind a plain "select *", so
            // views are refused, and functions in the schema get no more trust than SQL text.
            sqlite3_db_config(owned.get(), SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
            sqlite3_db_config(owned.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
        }
        m_connection = std::move(owned);
    }
}

SqliteStatement SqliteDatabase::prepare(SqlText sql) {
    if (!m_connection) {
        return {};
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_connection.get(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return {};
    }
    return SqliteStatement(statement);
}

qint64 SqliteDatabase::lastInsertRowId() const noexcept {
    return m_connection ? sqlite3_last_insert_rowid(m_connection.get()) : -1;
}

QString SqliteDatabase::lastErrorMessage() const {
    return m_connection ? QString::fromUtf8(sqlite3_errmsg(m_connection.get()))
                        : QString::fromUtf8(sqlite3_errstr(SQLITE_CANTOPEN));
}

QString SqliteDatabase::noErrorMessage() {
    return QString::fromUtf8(sqlite3_errstr(SQLITE_OK));
}
