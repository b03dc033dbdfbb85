// nivogx-server: the reference account service.
//
//   nivogx-server [--config FILE] [--dev] [options]        serve
//   nivogx-server accounts list|disable|enable|delete NAME  administer the accounts
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QSettings>
#include <QTextStream>
#include <memory>
#include <optional>

#include "server/AccountAuthority.h"
#include "server/AccountHttpServer.h"
#include "server/AccountService.h"
#include "server/AccountStore.h"
#include "server/PrivateFiles.h"
#include "server/SignalWatcher.h"

using namespace Qt::Literals::StringLiterals;

namespace {

QString devFile(const char* name) {
    return QStringLiteral(NIVOGX_DEV_CERTS_DIR "/") + QString::fromLatin1(name);
}

int fail(const QString& message) {
    QTextStream(stderr) << "nivogx-server: " << message << Qt::endl;
    return 1;
}

// Every option has a key of the same name in the configuration file; an option given on the
// command line wins over the file.
class Settings {
public:
    Settings(const QCommandLineParser& parser, const QString& configPath)
        : m_parser(parser),
          m_file(configPath.isEmpty()
                     ? nullptr
                     : std::make_unique<QSettings>(configPath, QSettings::IniFormat)) {}

    [[nodiscard]] bool fileUsable() const {
        return !m_file || m_file->status() == QSettings::NoError;
    }
    [[nodiscard]] bool has(const QCommandLineOption& option) const {
        return m_parser.isSet(option) || (m_file && m_file->contains(option.names().constFirst()));
    }
    [[nodiscard]] QString value(const QCommandLineOption& option) const {
        if (m_parser.isSet(option) || !m_file) {
            return m_parser.value(option);
        }
        return m_file->value(option.names().constFirst(), m_parser.value(option)).toString();
    }
    // A key of the settings file that has no option, such as a secret.
    [[nodiscard]] QString fileValue(const QString& key) const {
        return m_file ? m_file->value(key).toString() : QString();
    }
    // The option's value as a number of at least `minimum`; empty when it is not one.
    [[nodiscard]] std::optional<int> number(const QCommandLineOption& option, int minimum) const {
        bool ok = false;
        const int number = value(option).toInt(&ok);
        return ok && number >= minimum ? std::optional<int>(number) : std::nullopt;
    }

private:
    const QCommandLineParser& m_parser;
    std::unique_ptr<QSettings> m_file;
};

int administer(const QStringList& arguments, const QString& databaseUrl,
               const QString& databasePassword) {
    const QString command = arguments.value(1);
    const QString name = arguments.value(2).toLower();
    const bool wantsName =
        command == "disable"_L1 || command == "enable"_L1 || command == "delete"_L1;
    if (!(command == "list"_L1 && arguments.size() == 2) && !(wantsName && arguments.size() == 3)) {
        return fail(
            u"usage: nivogx-server accounts list | disable NAME | enable NAME | delete NAME"_s);
    }
    const QString path = AccountStore::sqlitePath(databaseUrl);
    if (!path.isEmpty() && !QFileInfo::exists(path)) {
        return fail(u"no account database %1"_s.arg(path));
    }
    AccountStore store(databaseUrl, databasePassword);
    if (!store.open()) {
        return fail(store.error());
    }
    QTextStream out(stdout);
    if (command == "list"_L1) {
        for (const auto& account : store.list()) {
            out << account.loginName << '\t' << (account.disabled ? "disabled" : "enabled") << '\t'
                << account.created << '\t' << account.email << '\n';
        }
        return 0;
    }
    const bool done = command == "delete"_L1 ? store.remove(name)
                                             : store.setDisabled(name, command == "disable"_L1);
    if (!done) {
        return fail(u"no account named %1"_s.arg(name));
    }
    out << command << "d " << name << Qt::endl;
    return 0;
}

// Copies one database into another (typically SQLite into PostgreSQL); safe to run again.
int migrate(const QString& fromUrl, const QString& toUrl, const QString& toPassword) {
    if (fromUrl.isEmpty() || toUrl.isEmpty()) {
        return fail(u"usage: nivogx-server migrate --from URL --to URL"_s);
    }
    const QString fromPath = AccountStore::sqlitePath(fromUrl);
    if (!fromPath.isEmpty() && !QFileInfo::exists(fromPath)) {
        return fail(u"no account database %1"_s.arg(fromPath));
    }
    AccountStore from(fromUrl);
    AccountStore to(toUrl, toPassword);
    if (!from.open()) {
        return fail(from.error());
    }
    if (!to.open()) {
        return fail(to.error());
    }
    QStringList report;
    if (const QString problem = to.copyFrom(from, &report); !problem.isEmpty()) {
        return fail(u"nothing copied: "_s + problem);
    }
    QTextStream out(stdout);
    out << "copied " << from.display() << " into " << to.display() << '\n';
    for (const QString& line : std::as_const(report)) {
        out << "  " << line << '\n';
    }
    out.flush();
    return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"nivogx-server"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Reference account server for NIVO-GX.\n\n"
        "  nivogx-server [options]                                 serve\n"
        "  nivogx-server accounts list|disable|enable|delete NAME  administer the accounts\n"
        "  nivogx-server migrate --from URL --to URL               copy one database into "
        "another"_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption config(
        u"config"_s, u"Settings file (INI); its keys are the option names."_s, u"file"_s);
    const QCommandLineOption dev(u"dev"_s,
                                 u"Development mode: the published keys from the source tree's "
                                 "certs/dev stand in for TLS and CA files not given. Never in "
                                 "production."_s);
    const QCommandLineOption listen(u"listen"_s, u"Address and port to listen on."_s,
                                    u"host:port"_s, u"127.0.0.1:8443"_s);
    const QCommandLineOption dataDir(u"data-dir"_s,
                                     u"Folder of the account database accounts.db (unless "
                                     "--database names another)."_s,
                                     u"dir"_s);
    const QCommandLineOption database(
        u"database"_s,
        u"Account database: sqlite:/path/accounts.db or postgresql://user@host[:port]/dbname"
        "[?sslmode=...]. Its password goes in the settings file (database-password) or in "
        "PGPASSFILE, not on the command line."_s,
        u"url"_s);
    const QCommandLineOption migrateFrom(u"from"_s, u"migrate: the database to copy."_s, u"url"_s);
    const QCommandLineOption migrateTo(u"to"_s, u"migrate: the database to copy into."_s, u"url"_s);
    const QCommandLineOption tlsCert(u"tls-cert"_s, u"TLS certificate chain (PEM, leaf first)."_s,
                                     u"file"_s);
    const QCommandLineOption tlsKey(u"tls-key"_s, u"TLS private key (PEM)."_s, u"file"_s);
    const QCommandLineOption caCert(u"ca-cert"_s,
                                    u"CA certificate that issues user certificates."_s, u"file"_s);
    const QCommandLineOption caKey(u"ca-key"_s, u"Private key (PEM) of that CA."_s, u"file"_s);
    const QCommandLineOption minPassword(
        u"min-password-length"_s, u"Shortest password accepted at sign-up."_s, u"n"_s, u"8"_s);
    const QCommandLineOption signUpInterval(
        u"signup-interval"_s,
        u"Seconds for one more sign-up from a client address to be allowed (after a burst of "
        "5); 0 for no limit."_s,
        u"seconds"_s, QString::number(ClientThrottle::Policy{}.signUpIntervalSeconds));
    const QCommandLineOption workers(u"workers"_s,
                                     u"Threads for password checks and key generation (0: one "
                                     "per core)."_s,
                                     u"n"_s, u"0"_s);
    const TlsListener::Limits limits;
    const QCommandLineOption maxHandshakes(u"max-handshakes"_s, u"TLS handshakes at once."_s,
                                           u"n"_s, QString::number(limits.maxHandshakes));
    const QCommandLineOption maxConnections(u"max-connections"_s, u"Connections open at once."_s,
                                            u"n"_s, QString::number(limits.maxConnections));
    const QCommandLineOption maxPerAddress(u"max-connections-per-address"_s,
                                           u"Connections open at once from one client address."_s,
                                           u"n"_s, QString::number(limits.maxPerAddress));
    const QCommandLineOption handshakeTimeout(
        u"handshake-timeout"_s, u"Seconds a client has to complete its TLS handshake."_s,
        u"seconds"_s, QString::number(limits.handshakeDeadlineMs / 1000));
    const QCommandLineOption idleTimeout(
        u"idle-timeout"_s, u"Seconds a connection may stay without completing a request."_s,
        u"seconds"_s, QString::number(limits.idleDeadlineMs / 1000));
    const QCommandLineOption reusePort(
        u"reuse-port"_s,
        u"Share the port with other nivogx-server processes (SO_REUSEPORT; true or false)."_s,
        u"bool"_s, u"false"_s);
    const QCommandLineOption proxyProtocol(
        u"proxy-protocol"_s,
        u"Every connection starts with a PROXY protocol v1 line from a front proxy that passes "
        "TLS through (true or false). Only when nothing but the proxy reaches --listen."_s,
        u"bool"_s, u"false"_s);
    QCommandLineOption userKeyBits(u"user-key-bits"_s,
                                   u"With --dev: bits of the users' RSA keys (tests)."_s, u"bits"_s,
                                   QString::number(AccountAuthority::kUserKeyBits));
    userKeyBits.setFlags(QCommandLineOption::HiddenFromHelp);
    const QCommandLineOption logRequests(u"log-requests"_s,
                                         u"One line per request on stderr (true or false)."_s,
                                         u"bool"_s, u"true"_s);
    parser.addOptions({config,           dev,         listen,        dataDir,        database,
                       tlsCert,          tlsKey,      caCert,        caKey,          minPassword,
                       signUpInterval,   workers,     maxHandshakes, maxConnections, maxPerAddress,
                       handshakeTimeout, idleTimeout, logRequests,   reusePort,      proxyProtocol,
                       userKeyBits,      migrateFrom, migrateTo});
    parser.addPositionalArgument(
        u"command"_s, u"Administer the accounts, or copy a database, instead of serving."_s,
        u"[accounts list|disable|enable|delete NAME | migrate]"_s);
    parser.process(app);

    const Settings settings(parser, parser.value(config));
    if (!settings.fileUsable()) {
        return fail(u"cannot read the settings file %1"_s.arg(parser.value(config)));
    }
    const QString databasePassword = settings.fileValue(u"database-password"_s);
    const QStringList positional = parser.positionalArguments();
    if (positional.value(0) == "migrate"_L1) {
        if (positional.size() != 1) {
            return fail(u"usage: nivogx-server migrate --from URL --to URL"_s);
        }
        return migrate(parser.value(migrateFrom), parser.value(migrateTo), databasePassword);
    }
    if (!settings.has(dataDir) && !settings.has(database)) {
        return fail(
            u"--data-dir or --database (or the same keys in the settings file) is required"_s);
    }
    const QString databaseUrl =
        settings.has(database)
            ? settings.value(database)
            : AccountStore::sqliteUrl(QDir(settings.value(dataDir)).filePath(u"accounts.db"_s));
    if (!AccountStore::parseUrl(databaseUrl).isValid()) {
        return fail(u"--database wants %1"_s.arg(QLatin1StringView(AccountStore::kUrlForms)));
    }
    // The folder of an SQLite database holds nothing but the server's secrets.
    const QString databasePath = AccountStore::sqlitePath(databaseUrl);
    const QString data =
        databasePath.isEmpty() ? QString() : QFileInfo(databasePath).absolutePath();
    if (!positional.isEmpty()) {
        if (positional.constFirst() != "accounts"_L1) {
            return fail(u"unknown command %1; see --help"_s.arg(positional.constFirst()));
        }
        if (!data.isEmpty()) {
            if (const QString problem = PrivateFiles::checkPrivate(data); !problem.isEmpty()) {
                return fail(problem);
            }
        }
        return administer(positional, databaseUrl, databasePassword);
    }

    // Without --dev every key comes from the operator: the development keys are published.
    const bool development = parser.isSet(dev);
    for (const auto* option : {&tlsCert, &tlsKey, &caCert, &caKey}) {
        if (!development && !settings.has(*option)) {
            return fail(
                u"--%1 is not set. Give --tls-cert, --tls-key, --ca-cert and --ca-key (or "
                "the same keys in the --config file); --dev uses the published "
                "development keys instead, for trying the server out only."_s.arg(
                    option->names().constFirst()));
        }
    }
    const auto pick = [&](const QCommandLineOption& option, const char* devName) {
        return settings.has(option) ? settings.value(option) : devFile(devName);
    };
    const QString tlsCertPath = pick(tlsCert, "server-tls-chain.pem");
    const QString tlsKeyPath = pick(tlsKey, "server-tls.key");
    const QString caCertPath = pick(caCert, "service-root.cer");
    const QString caKeyPath = pick(caKey, "service-root.key");

    const QString where = settings.value(listen);
    const qsizetype colon = where.lastIndexOf(u':');
    bool portOk = false;
    const int port = where.mid(colon + 1).toInt(&portOk);
    const QHostAddress address(where.left(colon).remove(u'[').remove(u']'));
    if (colon <= 0 || !portOk || port < 0 || port > 65535 || address.isNull()) {
        return fail(u"--listen wants host:port, for example 127.0.0.1:8443"_s);
    }
    AccountService::Policy policy;
    AccountHttpServer::Options options;
    const auto minLength = settings.number(minPassword, 1);
    const auto interval = settings.number(signUpInterval, 0);
    const auto threads = settings.number(workers, 0);
    const auto handshakes = settings.number(maxHandshakes, 1);
    const auto connections = settings.number(maxConnections, 1);
    const auto perAddress = settings.number(maxPerAddress, 1);
    const auto handshakeSeconds = settings.number(handshakeTimeout, 1);
    const auto idleSeconds = settings.number(idleTimeout, 1);
    const auto flag = [&](const QCommandLineOption& option) -> std::optional<bool> {
        const QString value = settings.value(option);
        if (value == "true"_L1 || value == "false"_L1) {
            return value == "true"_L1;
        }
        return std::nullopt;
    };
    const auto logging = flag(logRequests);
    const auto sharing = flag(reusePort);
    const auto proxied = flag(proxyProtocol);
    if (!minLength || !interval || !threads || !handshakes || !connections || !perAddress ||
        !handshakeSeconds || !idleSeconds || !logging || !sharing || !proxied) {
        return fail(
            u"a numeric setting is not a number in range, or log-requests, reuse-port or "
            "proxy-protocol is not true or false; see --help"_s);
    }
    policy.minPasswordLength = *minLength;
    policy.throttle.signUpIntervalSeconds = *interval;
    options.workers = *threads;
    options.connections.maxHandshakes = *handshakes;
    options.connections.maxConnections = *connections;
    options.connections.maxPerAddress = *perAddress;
    options.connections.handshakeDeadlineMs = *handshakeSeconds * 1000;
    options.connections.idleDeadlineMs = *idleSeconds * 1000;
    options.logRequests = *logging;
    options.reusePort = *sharing;
    options.proxyProtocol = *proxied;

    // The secrets stay the server user's own.
    QStringList problems;
    if (!data.isEmpty()) {
        problems << PrivateFiles::makePrivateFolder(data)
                 << PrivateFiles::checkPrivate(databasePath);
    }
    if (!development) {
        problems << PrivateFiles::checkPrivate(caKeyPath)
                 << PrivateFiles::checkPrivate(tlsKeyPath, PrivateFiles::Others::NoWorldAccess);
    }
    problems.removeAll(QString());
    if (!problems.isEmpty()) {
        return fail(problems.constFirst());
    }
    AccountStore store(databaseUrl, databasePassword);
    if (!store.open()) {
        return fail(store.error());
    }
    AccountAuthority authority(caCertPath, caKeyPath);
    if (!authority.isValid()) {
        return fail(u"cannot load the CA certificate and key"_s);
    }
    if (parser.isSet(userKeyBits)) {
        const auto bits = settings.number(userKeyBits, 1024);
        if (!development || !bits || *bits > AccountAuthority::kUserKeyBits) {
            return fail(u"--user-key-bits is for tests: with --dev only, 1024 to %1"_s.arg(
                AccountAuthority::kUserKeyBits));
        }
        authority.setUserKeyBits(*bits);
    }
    AccountService service(store, authority, policy);
    AccountHttpServer server(service, store, options);
    if (!server.setTls(tlsCertPath, tlsKeyPath)) {
        return fail(u"cannot load the TLS certificate and key"_s);
    }

    SignalWatcher watcher;
    QObject::connect(&watcher, &SignalWatcher::reload, &server, [&] {
        const bool reloaded = server.setTls(tlsCertPath, tlsKeyPath);
        QTextStream(stderr) << "nivogx-server: "
                            << (reloaded ? "reloaded the TLS certificate and key"
                                         : "cannot load the TLS certificate and key; keeping the "
                                           "ones in use")
                            << Qt::endl;
    });
    // On SIGTERM: no new connections; the requests under way get their answers, then it exits.
    QObject::connect(&watcher, &SignalWatcher::terminate, &server, [&] {
        QTextStream(stderr) << "nivogx-server: stopping" << Qt::endl;
        server.stopListening();
        if (server.requestsUnderWay() == 0) {
            QCoreApplication::quit();
        }
        QObject::connect(&server, &AccountHttpServer::drained, &app, &QCoreApplication::quit);
    });

    const quint16 bound = server.listen(address, static_cast<quint16>(port));
    if (bound == 0) {
        return fail(u"cannot listen on %1"_s.arg(where));
    }
    if (development) {
        QTextStream(stderr) << "nivogx-server: development mode, with the published development "
                               "keys where none are given; never use it in production"
                            << Qt::endl;
    }
    QTextStream(stdout) << "nivogx-server: listening on https://" << where.left(colon) << ':'
                        << bound << Qt::endl;
    return QCoreApplication::exec();
}
