#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

// Asks the sqlite3 command-line shell, independently of our own access layer, what a database
// file holds: one output line per result row, columns joined with "|".
inline QStringList sqliteShell(const QString& path, const QString& sql) {
    QProcess shell;
    shell.start(QStringLiteral("sqlite3"), {QStringLiteral("-readonly"), path, sql});
    if (!shell.waitForFinished(10000) || shell.exitCode() != 0) {
        return {QStringLiteral("sqlite3 failed: ") +
                QString::fromUtf8(shell.readAllStandardError())};
    }
    return QString::fromUtf8(shell.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
}

// Runs statements through the same shell with write access, as another program would change a
// file; false when the shell fails.
inline bool sqliteExec(const QString& path, const QString& sql) {
    QProcess shell;
    shell.start(QStringLiteral("sqlite3"), {path, sql});
    return shell.waitForFinished(10000) && shell.exitCode() == 0;
}

inline int sqliteCount(const QString& path, const QString& table) {
    const QStringList out = sqliteShell(path, QStringLiteral("select count(*) from ") + table);
    return out.size() == 1 ? out.first().toInt() : -1;
}
