#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A throw-away PostgreSQL cluster for one test program: made with initdb in a temporary folder,
// served on 127.0.0.1 (a free port) and a socket folder of its own, stopped and removed at the
// end. PostgreSQL refuses to run as root, so under root (as in CI) it runs as the `postgres`
// system user that Debian's package makes. Fast and unsafe for real data: no fsync.
class PostgresCluster {
public:
    static constexpr auto kUser = "nivogx";
    static constexpr auto kPassword = "cluster password 1";

    PostgresCluster();
    ~PostgresCluster();
    PostgresCluster(const PostgresCluster&) = delete;
    PostgresCluster& operator=(const PostgresCluster&) = delete;

    // Why the tests using it are skipped: the server's programs are not installed (they are,
    // after scripts/install-deps). Empty when they are.
    [[nodiscard]] QString missing() const { return m_missing; }
    // Why it did not start; empty when it runs.
    [[nodiscard]] QString error() const { return m_error; }
    [[nodiscard]] bool isRunning() const { return m_missing.isEmpty() && m_error.isEmpty(); }

    // A new, empty database; its URL without the password (see kPassword), or empty on failure.
    [[nodiscard]] QString createDatabase(const QString& name);
    [[nodiscard]] QString url(const QString& database, bool withPassword = false) const;
    [[nodiscard]] quint16 port() const noexcept { return m_port; }

private:
    // Runs a program of the cluster's, as the cluster's user; its output in m_error on failure.
    bool runAs(const QString& program, const QStringList& arguments);
    // Runs `statement` (none: only connects) as the cluster's owner in the database "postgres".
    bool asOwner(const QString& statement = {}) const;
    [[nodiscard]] QStringList asClusterUser(const QString& program,
                                            const QStringList& arguments) const;

    QTemporaryDir m_dir;
    QString m_bin;
    QString m_missing;
    QString m_error;
    QProcess m_server;
    quint16 m_port = 0;
    unsigned m_uid = 0;  // of the cluster's user when run as root, else 0
    unsigned m_gid = 0;
};
