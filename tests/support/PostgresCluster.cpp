#include "PostgresCluster.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpServer>
#include <QThread>
#include <QUrl>
#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kBoundMs = 60'000;

// The newest installed server's programs, as Debian lays them out.
QString findBinaries() {
    QDir versions(u"/usr/lib/postgresql"_s);
    QStringList found = versions.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    std::sort(found.begin(), found.end(),
              [](const QString& a, const QString& b) { return a.toInt() > b.toInt(); });
    for (const QString& version : std::as_const(found)) {
        const QString bin = versions.filePath(version + u"/bin"_s);
        if (QFile::exists(bin + u"/initdb"_s) && QFile::exists(bin + u"/postgres"_s)) {
            return bin;
        }
    }
    return {};
}

quint16 freePort() {
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

bool chown(const QString& path, unsigned uid, unsigned gid) {
    return ::chown(QFile::encodeName(path).constData(), uid, gid) == 0;
}

}  // namespace

PostgresCluster::PostgresCluster() {
    m_bin = findBinaries();
    if (m_bin.isEmpty()) {
        m_missing =
            u"PostgreSQL's server programs (initdb, postgres) are not installed under "
            "/usr/lib/postgresql; scripts/install-deps installs them"_s;
        return;
    }
    if (!QSqlDatabase::isDriverAvailable(u"QPSQL"_s)) {
        m_missing = u"Qt SQL has no PostgreSQL driver; scripts/install-deps installs it"_s;
        return;
    }
    const QString root = QDir(m_dir.path()).filePath(u"cluster"_s);
    const QString data = root + u"/data"_s;
    const QString sockets = root + u"/sockets"_s;
    const QString passwordFile = root + u"/password"_s;
    QFile password(passwordFile);
    if (!QDir().mkpath(sockets) || !password.open(QIODevice::WriteOnly) ||
        password.write(kPassword) < 0) {
        m_error = u"cannot prepare %1"_s.arg(root);
        return;
    }
    password.close();
    if (::geteuid() == 0) {
        const passwd* user = ::getpwnam("postgres");
        if (user == nullptr) {
            m_error = u"running as root, and there is no postgres user to run the cluster as"_s;
            return;
        }
        m_uid = user->pw_uid;
        m_gid = user->pw_gid;
        // The temporary folder is root's own: the cluster's user may only pass through.
        if (::chmod(QFile::encodeName(m_dir.path()).constData(), 0711) != 0 ||
            !chown(root, m_uid, m_gid) || !chown(sockets, m_uid, m_gid) ||
            !chown(passwordFile, m_uid, m_gid)) {
            m_error = u"cannot hand %1 to the postgres user"_s.arg(root);
            return;
        }
    }
    if (!runAs(m_bin + u"/initdb"_s, {u"-D"_s, data, u"-U"_s, QLatin1StringView(kUser),
                                      u"--pwfile"_s, passwordFile, u"-A"_s, u"scram-sha-256"_s,
                                      u"-E"_s, u"UTF8"_s, u"--locale=C"_s, u"--no-sync"_s})) {
        m_error = u"initdb failed: "_s + m_error;
        return;
    }
    m_port = freePort();
    const QStringList command = asClusterUser(
        m_bin + u"/postgres"_s,
        {u"-D"_s, data, u"-k"_s, sockets, u"-h"_s, u"127.0.0.1"_s, u"-p"_s, QString::number(m_port),
         u"-c"_s, u"fsync=off"_s, u"-c"_s, u"synchronous_commit=off"_s, u"-c"_s,
         u"full_page_writes=off"_s, u"-c"_s, u"max_connections=200"_s});
    m_server.setProcessChannelMode(QProcess::MergedChannels);
    m_server.start(command.constFirst(), command.mid(1));
    // Ready when it takes a connection.
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < kBoundMs) {
        if (m_server.state() == QProcess::NotRunning) {
            m_error = u"postgres stopped: "_s + QString::fromUtf8(m_server.readAll());
            return;
        }
        if (asOwner()) {
            return;
        }
        m_server.waitForReadyRead(200);
    }
    m_error = u"postgres did not come up: "_s + QString::fromUtf8(m_server.readAll());
}

PostgresCluster::~PostgresCluster() {
    if (m_server.state() != QProcess::NotRunning) {
        ::kill(static_cast<pid_t>(m_server.processId()), SIGINT);  // fast shutdown
        if (!m_server.waitForFinished(kBoundMs)) {
            m_server.kill();
            m_server.waitForFinished();
        }
    }
}

QStringList PostgresCluster::asClusterUser(const QString& program,
                                           const QStringList& arguments) const {
    if (m_uid == 0) {
        return QStringList{program} + arguments;
    }
    return QStringList{u"setpriv"_s,
                       u"--reuid=%1"_s.arg(m_uid),
                       u"--regid=%1"_s.arg(m_gid),
                       u"--clear-groups"_s,
                       u"--"_s,
                       program} +
           arguments;
}

bool PostgresCluster::runAs(const QString& program, const QStringList& arguments) {
    const QStringList command = asClusterUser(program, arguments);
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(QDir::rootPath());
    process.start(command.constFirst(), command.mid(1));
    const bool finished = process.waitForFinished(kBoundMs);
    if (finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0) {
        return true;
    }
    m_error = QString::fromUtf8(process.readAll());
    return false;
}

QString PostgresCluster::url(const QString& database, bool withPassword) const {
    QUrl url;
    url.setScheme(u"postgresql"_s);
    url.setUserName(QLatin1StringView(kUser));
    if (withPassword) {
        url.setPassword(QLatin1StringView(kPassword));
    }
    url.setHost(u"127.0.0.1"_s);
    url.setPort(m_port);
    url.setPath(u"/"_s + database);
    return url.toString(QUrl::FullyEncoded);
}

QString PostgresCluster::createDatabase(const QString& name) {
    if (!isRunning()) {
        return {};
    }
    return asOwner(u"CREATE DATABASE \"%1\""_s.arg(name)) ? url(name) : QString();
}

bool PostgresCluster::asOwner(const QString& statement) const {
    bool done = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, u"cluster-owner"_s);
        db.setHostName(u"127.0.0.1"_s);
        db.setPort(m_port);
        db.setDatabaseName(u"postgres"_s);
        db.setUserName(QLatin1StringView(kUser));
        db.setPassword(QLatin1StringView(kPassword));
        done = db.open() && (statement.isEmpty() || QSqlQuery(db).exec(statement));
    }
    QSqlDatabase::removeDatabase(u"cluster-owner"_s);
    return done;
}
