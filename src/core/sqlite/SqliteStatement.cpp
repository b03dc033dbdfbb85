#include "sqlite/SqliteStatement.h"

#include <sqlite3.h>

void SqliteStatement::Finalizer::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

SqliteStatement::SqliteStatement(sqlite3_stmt* statement) : m_statement(statement) {
    if (statement == nullptr) {
        return;
    }
    const int count = sqlite3_column_count(statement);
    m_columnNames.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        m_columnNames.emplace_back(sqlite3_column_name(statement, i));
    }
}

void SqliteStatement::bind(int index, qint64 value) {
    sqlite3_bind_int64(m_statement.get(), index, value);
}

void SqliteStatement::bind(int index, const QString& value) {
    if (value.isNull()) {
        sqlite3_bind_null(m_statement.get(), index);
        return;
    }
    const QByteArray utf8 = value.toUtf8();
    sqlite3_bind_text64(m_statement.get(), index, utf8.constData(),
                        static_cast<sqlite3_uint64>(utf8.size()), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SqliteStatement::bind(int index, const QByteArray& value) {
    if (value.isNull()) {
        sqlite3_bind_null(m_statement.get(), index);
    } else if (value.isEmpty()) {
        // A null data pointer would bind NULL instead of an empty blob.
        sqlite3_bind_zeroblob(m_statement.get(), index, 0);
    } else {
        sqlite3_bind_blob64(m_statement.get(), index, value.constData(),
                            static_cast<sqlite3_uint64>(value.size()), SQLITE_TRANSIENT);
    }
}

bool SqliteStatement::next() {
    if (!m_statement) {
        return false;
    }
    if (sqlite3_step(m_statement.get()) == SQLITE_ROW) {
        return true;
    }
    // Until the reset the connection reports "no more rows" rather than success.
    sqlite3_reset(m_statement.get());
    return false;
}

bool SqliteStatement::execute() {
    if (!m_statement) {
        return false;
    }
    const int result = sqlite3_step(m_statement.get());
    sqlite3_reset(m_statement.get());
    return result == SQLITE_DONE || result == SQLITE_ROW;
}

int SqliteStatement::columnIndex(const char* name) const {
    for (std::size_t i = 0; i < m_columnNames.size(); ++i) {
        if (qstricmp(m_columnNames[i].constData(), name) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int SqliteStatement::columnInt(const char* name) const {
    const int index = columnIndex(name);
    return index < 0 ? 0 : sqlite3_column_int(m_statement.get(), index);
}

qint64 SqliteStatement::columnInt64(const char* name) const {
    const int index = columnIndex(name);
    return index < 0 ? 0 : sqlite3_column_int64(m_statement.get(), index);
}

QString SqliteStatement::columnText(const char* name) const {
    const int index = columnIndex(name);
    if (index < 0 || sqlite3_column_type(m_statement.get(), index) == SQLITE_NULL) {
        return {};
    }
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement.get(), index));
    const int size = sqlite3_column_bytes(m_statement.get(), index);
    return text == nullptr ? QString() : QString::fromUtf8(text, size);
}

QByteArray SqliteStatement::columnBlob(const char* name) const {
    const int index = columnIndex(name);
    if (index < 0 || sqlite3_column_type(m_statement.get(), index) == SQLITE_NULL) {
        return {};
    }
    const auto* data = static_cast<const char*>(sqlite3_column_blob(m_statement.get(), index));
    const int size = sqlite3_column_bytes(m_statement.get(), index);
    // SQLite hands out no pointer for an empty blob; it is still a value, not NULL.
    return data == nullptr ? QByteArray("") : QByteArray(data, size);
}

SqliteStatement::Kind SqliteStatement::columnKind(const char* name) const {
    const int index = columnIndex(name);
    if (index < 0) {
        return Kind::Missing;
    }
    switch (sqlite3_column_type(m_statement.get(), index)) {
    case SQLITE_INTEGER:
        return Kind::Integer;
    case SQLITE_FLOAT:
        return Kind::Float;
    case SQLITE_TEXT:
        return Kind::Text;
    case SQLITE_BLOB:
        return Kind::Blob;
    default:
        return Kind::Null;
    }
}

qint64 SqliteStatement::columnBytes(const char* name) const {
    const int index = columnIndex(name);
    return index < 0 ? 0 : sqlite3_column_bytes(m_statement.get(), index);
}
