// Several nivogx-server processes on one PostgreSQL database, as an organisation runs them
// behind one address: what one process records, the others see (accounts, wrong passwords,
// serial numbers), on a shared port or behind a front proxy; and the copy from SQLite.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSslCertificate>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QUrl>
#include <memory>
#include <thread>
#include <vector>

#include "PostgresCluster.h"
#include "RawClient.h"
#include "ServerProcess.h"
#include "TestFiles.h"
#include "server/AccountStore.h"
#include "server/ClientThrottle.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kBoundMs = 30'000;

QByteArray signUp(const QString& url, const QByteArray& name) {
    return exchange(
        url, post("/nivo/CreateProfile.aspx", "logInName=" + name + "&logInPassword=password1"));
}

QByteArray signIn(const QString& url, const QByteArray& name, const QByteArray& password,
                  const QHostAddress& from = {}) {
    return exchange(
        url, post("/nivo/GetProfile.aspx", "logInName=" + name + "&logInPassword=" + password),
        nullptr, from);
}

// Runs a statement on the test's database, as its owner.
bool sql(const QString& database, const QString& statement) {
    bool done = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QPSQL"_s, u"test"_s);
        const QUrl url(database);
        db.setHostName(url.host());
        db.setPort(url.port());
        db.setDatabaseName(url.path().mid(1));
        db.setUserName(url.userName());
        db.setPassword(QLatin1StringView(PostgresCluster::kPassword));
        done = db.open() && QSqlQuery(db).exec(statement);
    }
    QSqlDatabase::removeDatabase(u"test"_s);
    return done;
}

// Wrong passwords for `name`, taking turns between the servers and waiting out each lock, until
// the address is locked out for 8 seconds: long enough for a check on a slow machine.
bool guessUntilLockedOut(const QStringList& urls, const QByteArray& name,
                         const QHostAddress& from = {}) {
    int failures = 0;
    QElapsedTimer timer;
    timer.start();
    while (failures < ClientThrottle::kFreeAttempts + 3 && timer.elapsed() < kBoundMs) {
        const QByteArray answer = signIn(urls.value(failures % urls.size()), name, "wrong", from);
        if (answer.contains("Wrong password")) {
            ++failures;
        } else if (answer.contains("too many wrong passwords")) {
            QThread::msleep(200);
        } else {
            return false;
        }
    }
    return failures == ClientThrottle::kFreeAttempts + 3;
}

class SharedDatabaseTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { cluster = new PostgresCluster; }
    static void TearDownTestSuite() {
        delete cluster;
        cluster = nullptr;
    }

    void SetUp() override {
        if (!cluster->missing().isEmpty()) {
            GTEST_SKIP() << cluster->missing().toStdString();
        }
        ASSERT_TRUE(cluster->isRunning()) << cluster->error().toStdString();
        static int made = 0;
        database = cluster->createDatabase(u"shared%1"_s.arg(++made));
        ASSERT_FALSE(database.isEmpty());
        // The password from the settings file, as the documentation advises.
        config = QDir(dir.path()).filePath(u"server.conf"_s);
        ASSERT_TRUE(putFile(config, "database=" + database.toUtf8() + "\ndatabase-password=" +
                                        QByteArray(PostgresCluster::kPassword) +
                                        "\nsignup-interval=0\n"));
    }

    // Starts a server on the test's database; null when it did not come up.
    ServerProcess* start(const QStringList& arguments = {},
                         const QString& listen = u"127.0.0.1:0"_s) {
        auto& server = *servers.emplace_back(std::make_unique<ServerProcess>());
        const QString url =
            server.start(QStringList{u"--config"_s, config, u"--dev"_s, u"--listen"_s, listen,
                                     u"--user-key-bits"_s, u"1024"_s} +
                         arguments);
        return url.isEmpty() ? nullptr : &server;
    }

    static inline PostgresCluster* cluster = nullptr;
    QTemporaryDir dir;
    QString database;
    QString config;
    std::vector<std::unique_ptr<ServerProcess>> servers;
};

TEST_F(SharedDatabaseTest, AccountsAndWrongPasswordsCountInEveryProcess) {
    ServerProcess* one = start();
    ServerProcess* two = start();
    // Its sign-ups start with a change (the address's count) rather than a look-up, on the one
    // worker thread.
    ServerProcess* limited = start({u"--signup-interval"_s, u"60"_s, u"--workers"_s, u"1"_s});
    ASSERT_TRUE(one && two && limited);
    ASSERT_TRUE(signUp(one->url, "ann").contains("Profile created for ann."));
    ASSERT_TRUE(signUp(limited->url, "bea").contains("Profile created for bea."));
    EXPECT_TRUE(signIn(two->url, "ann", "password1").contains("\"Pfx\":["));
    EXPECT_TRUE(signUp(two->url, "ANN").contains("is not available"));

    // Wrong passwords spread over both (each process sees only half of them): both hold the
    // address back.
    ASSERT_TRUE(guessUntilLockedOut({one->url, two->url}, "ann"));
    for (ServerProcess* server : {one, two}) {
        const QByteArray answer = signIn(server->url, "ann", "password1");
        EXPECT_TRUE(answer.contains("too many wrong passwords")) << answer.left(200).toStdString();
    }

    // The database drops every connection: the next request, a look-up or a change, is served
    // on a new one.
    ASSERT_TRUE(sql(database,
                    u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE "
                    "datname = current_database() AND pid <> pg_backend_pid()"_s));
    for (ServerProcess* server : {one, two}) {
        const QByteArray lookUp = post("/nivo/GetId.aspx", "logInNameToRetrieve=ann");
        EXPECT_TRUE(exchange(server->url, lookUp).contains("\"Pfx\":["));
    }
    ASSERT_TRUE(sql(database,
                    u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE "
                    "datname = current_database() AND pid <> pg_backend_pid()"_s));
    const QByteArray cai = signUp(limited->url, "cai");
    EXPECT_TRUE(cai.contains("Profile created for cai.")) << cai.left(300).toStdString();

    // With the database out of reach, a look-up fails as a service failure, not as a name that
    // is not registered.
    const QString name = QUrl(database).path().mid(1);
    QString admin = database;
    admin.replace(u'/' + name, u"/postgres"_s);
    ASSERT_TRUE(sql(admin, u"ALTER DATABASE \"%1\" ALLOW_CONNECTIONS false"_s.arg(name)));
    ASSERT_TRUE(sql(admin,
                    u"SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE "
                    "datname = '%1'"_s.arg(name)));
    const QByteArray answer =
        exchange(one->url, post("/nivo/GetId.aspx", "logInNameToRetrieve=ann"));
    EXPECT_TRUE(answer.contains("Service not available")) << answer.left(200).toStdString();
}

TEST_F(SharedDatabaseTest, ConcurrentSignUpsGetDistinctSerialsAndOneWinnerPerName) {
    ServerProcess* one = start();
    ServerProcess* two = start();
    ASSERT_TRUE(one && two);
    // 50 names and 10 tries at one more, from 12 clients at once, alternating between processes.
    constexpr int kDistinct = 50;
    constexpr int kSame = 10;
    constexpr int kClients = 12;
    std::vector<QByteArray> answers(kDistinct + kSame);
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c) {
        clients.emplace_back([&, c] {
            for (int i = c; i < kDistinct + kSame; i += kClients) {
                const QByteArray name = i < kDistinct ? "user" + QByteArray::number(i) : "samename";
                answers[i] = signUp(i % 2 == 0 ? one->url : two->url, name);
            }
        });
    }
    for (auto& client : clients) {
        client.join();
    }
    int created = 0;
    for (const QByteArray& answer : answers) {
        created += answer.contains("Profile created") ? 1 : 0;
        EXPECT_TRUE(answer.contains("Profile created") || answer.contains("is not available"))
            << answer.toStdString();
    }
    EXPECT_EQ(created, kDistinct + 1);

    AccountStore store(database, QLatin1StringView(PostgresCluster::kPassword));
    ASSERT_TRUE(store.open()) << store.error().toStdString();
    const auto accounts = store.list();
    ASSERT_EQ(accounts.size(), kDistinct + 1);
    QSet<QByteArray> serials;
    for (const auto& listed : accounts) {
        const auto account = store.find(listed.loginName).account;
        ASSERT_TRUE(account.has_value());
        serials.insert(QSslCertificate(account->certificate, QSsl::Der).serialNumber());
    }
    EXPECT_EQ(serials.size(), kDistinct + 1);
}

// A newer database is refused in AccountSchema whatever the engine: ServerProcessTest's.
TEST_F(SharedDatabaseTest, ProcessesShareAPort) {
    ServerProcess* one = start({u"--reuse-port"_s, u"true"_s});
    ASSERT_TRUE(one);
    const QString shared = u"127.0.0.1:%1"_s.arg(QUrl(one->url).port());
    ServerProcess* two = start({u"--reuse-port"_s, u"true"_s}, shared);
    ASSERT_TRUE(two);
    EXPECT_EQ(two->url, one->url);
    // The kernel spreads connections over both.
    for (int i = 0; i < 24; ++i) {
        (void)exchange(one->url,
                       post("/nivo/CheckLoginName.aspx", "logInName=x" + QByteArray::number(i)));
    }
    EXPECT_TRUE(one->logged("/nivo/CheckLoginName.aspx"));
    EXPECT_TRUE(two->logged("/nivo/CheckLoginName.aspx"));
    EXPECT_EQ(start({}, shared), nullptr) << "without --reuse-port the port is taken";
}

TEST_F(SharedDatabaseTest, BehindAProxyThrottlingSeesTheClientsAddress) {
    const QString haproxy = u"/usr/sbin/haproxy"_s;
    if (!QFile::exists(haproxy)) {
        GTEST_SKIP() << "HAProxy is not installed; scripts/install-deps installs it";
    }
    ServerProcess* server = start({u"--proxy-protocol"_s, u"true"_s});
    ASSERT_TRUE(server);
    // Without the proxy's line first, there is no TLS.
    EXPECT_TRUE(signUp(server->url, "direct").startsWith("no TLS"));

    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const quint16 front = probe.serverPort();
    probe.close();
    const QString proxyConfig = QDir(dir.path()).filePath(u"haproxy.cfg"_s);
    ASSERT_TRUE(putFile(proxyConfig,
                        u"defaults\n  mode tcp\n  timeout connect 5s\n  timeout client 30s\n"
                        "  timeout server 30s\nfrontend accounts\n  bind 127.0.0.1:%1\n"
                        "  default_backend servers\nbackend servers\n"
                        "  server one 127.0.0.1:%2 send-proxy\n"_s.arg(front)
                            .arg(QUrl(server->url).port())
                            .toUtf8()));
    QProcess proxy;
    proxy.setProcessChannelMode(QProcess::ForwardedChannels);
    proxy.start(haproxy, {u"-db"_s, u"-f"_s, proxyConfig});
    const auto stopProxy = qScopeGuard([&] {
        proxy.terminate();
        if (!proxy.waitForFinished(kBoundMs)) {
            proxy.kill();
            proxy.waitForFinished();
        }
    });
    QElapsedTimer timer;
    timer.start();
    bool up = false;
    while (!up && timer.elapsed() < kBoundMs && proxy.state() != QProcess::NotRunning) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, front);
        up = socket.waitForConnected(500);
        QThread::msleep(up ? 0 : 100);
    }
    ASSERT_TRUE(up) << "HAProxy did not come up";
    const QString url = u"https://127.0.0.1:%1"_s.arg(front);

    ASSERT_TRUE(signUp(url, "pia").contains("Profile created"));
    const QHostAddress guesser(u"127.0.0.2"_s);
    ASSERT_TRUE(guessUntilLockedOut({url}, "pia", guesser));
    EXPECT_TRUE(signIn(url, "pia", "password1", guesser).contains("from your address"));
    // Another client behind the same proxy is not held back.
    EXPECT_TRUE(
        signIn(url, "pia", "password1", QHostAddress(u"127.0.0.3"_s)).contains("\"Pfx\":["));
    EXPECT_TRUE(server->logged("127.0.0.2 /nivo/GetProfile.aspx"));
}

TEST_F(SharedDatabaseTest, MigrationFromSqliteCopiesEverythingAndCanRunAgain) {
    // An SQLite server's data folder with two accounts and a guessed-at address.
    const QString data = QDir(dir.path()).filePath(u"data"_s);
    ServerProcess* old =
        start({u"--database"_s, AccountStore::sqliteUrl(data + u"/accounts.db"_s)});
    ASSERT_TRUE(old);
    ASSERT_TRUE(signUp(old->url, "sam").contains("Profile created"));
    ASSERT_TRUE(signUp(old->url, "sue").contains("Profile created"));
    for (int i = 0; i < ClientThrottle::kFreeAttempts; ++i) {
        ASSERT_TRUE(signIn(old->url, "sam", "wrong").contains("Wrong password"));
    }
    old->signal(SIGTERM);
    ASSERT_TRUE(old->process.waitForFinished(kBoundMs));

    const auto migrate = [&] {
        QProcess tool;
        tool.setProcessChannelMode(QProcess::MergedChannels);
        tool.start(QStringLiteral(NIVOGX_SERVER_PATH),
                   {u"migrate"_s, u"--config"_s, config, u"--from"_s,
                    AccountStore::sqliteUrl(data + u"/accounts.db"_s), u"--to"_s, database});
        EXPECT_TRUE(tool.waitForFinished(kBoundMs));
        EXPECT_EQ(tool.exitCode(), 0);
        return QString::fromUtf8(tool.readAll());
    };
    const QString first = migrate();
    EXPECT_TRUE(first.contains(u"account: 2 copied, 0 already there, 2 in all"_s))
        << first.toStdString();
    EXPECT_TRUE(first.contains(u"throttle_pair: 1 copied"_s)) << first.toStdString();
    const QString second = migrate();
    EXPECT_TRUE(second.contains(u"account: 0 copied, 2 already there, 2 in all"_s))
        << second.toStdString();

    ServerProcess* now = start();
    ASSERT_TRUE(now);
    EXPECT_TRUE(signIn(now->url, "sue", "password1").contains("\"Pfx\":["));
    // Serial numbers go on after the copied ones.
    ASSERT_TRUE(signUp(now->url, "tom").contains("Profile created"));
    AccountStore store(database, QLatin1StringView(PostgresCluster::kPassword));
    ASSERT_TRUE(store.open());
    const auto guessed = store.pairRecord(u"sam"_s, u"127.0.0.1"_s);
    ASSERT_TRUE(guessed.has_value());
    EXPECT_EQ(guessed->failures, ClientThrottle::kFreeAttempts);
    EXPECT_EQ(store.nextCertificateNumber(), 4u);
}

}  // namespace
