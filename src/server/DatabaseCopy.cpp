#include "server/DatabaseCopy.h"

#include <QSqlError>

#include "server/AccountDatabase.h"

using namespace Qt::Literals::StringLiterals;

namespace {

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

QString DatabaseCopy::run(QStringList* report) {
    QSqlDatabase source = m_from.connection();
    if (!source.isOpen()) {
        return u"cannot open %1: %2"_s.arg(m_from.location().display(), source.lastError().text());
    }
    QString problem;
    QStringList lines;
    const bool done = m_to.transaction([&](QSqlDatabase& db) {
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
            !AccountDatabase::execute(
                db, u"UPDATE CERTIFICATE_COUNTER SET Issued = ? WHERE Id = 1 AND Issued < ?"_s,
                counter.value(0).toLongLong(), counter.value(0).toLongLong())) {
            problem = u"cannot carry over the certificate counter"_s;
            return false;
        }
        lines << u"certificate counter: at least %1"_s.arg(counter.value(0).toLongLong());
        return true;
    });
    if (!done) {
        return problem.isEmpty()
                   ? u"cannot write %1: %2"_s.arg(m_to.location().display(),
                                                  AccountDatabase::lastError(m_to.connection()))
                   : problem;
    }
    if (report != nullptr) {
        *report = lines;
    }
    return {};
}
