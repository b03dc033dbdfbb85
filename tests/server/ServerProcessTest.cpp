// The nivogx-server program as an operator runs it: what it refuses to start with, the settings
// file, the modes of its secrets, the signals it answers, and the account administration.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSslCertificate>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>

#include "RawClient.h"
#include "ServerProcess.h"
#include "TestFiles.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kStartBoundMs = 30'000;

QString dev(const char* name) {
    return QStringLiteral(NIVOGX_DEV_CERTS_DIR "/") + QString::fromLatin1(name);
}

// Runs statements on an SQLite file, as an older or newer server would have left it.
bool writeDatabase(const QString& path, const QStringList& statements) {
    const QString name = u"written"_s;
    bool done = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
        db.setDatabaseName(path);
        done = db.open();
        for (const QString& statement : statements) {
            done = done && QSqlQuery(db).exec(statement);
        }
    }
    QSqlDatabase::removeDatabase(name);
    return done;
}

mode_t modeOf(const QString& path) {
    struct stat info = {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 0777 : 0;
}

class ServerProcessTest : public ::testing::Test {
protected:
    // Runs the program to its end; returns its exit code, with its output in `output`.
    int run(const QStringList& arguments, QString* output = nullptr) {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(QStringLiteral(NIVOGX_SERVER_PATH), arguments);
        if (!process.waitForFinished(kStartBoundMs)) {
            process.kill();
            process.waitForFinished();
            return -1;
        }
        if (output != nullptr) {
            *output = QString::fromUtf8(process.readAll());
        }
        return process.exitCode();
    }

    QString dataDir() const { return QDir(dir.path()).filePath(u"data"_s); }

    QTemporaryDir dir;
    ServerProcess server;
};

TEST_F(ServerProcessTest, WithoutKeysItRefusesUnlessInDevelopmentMode) {
    QString output;
    EXPECT_EQ(run({u"--data-dir"_s, dataDir()}, &output), 1);
    EXPECT_TRUE(output.contains(u"--dev"_s)) << output.toStdString();
    EXPECT_FALSE(QFileInfo::exists(dataDir())) << "refused before touching anything";
    // Half the keys are not enough either.
    EXPECT_EQ(run({u"--data-dir"_s, dataDir(), u"--tls-cert"_s, dev("server-tls-chain.pem"),
                   u"--tls-key"_s, dev("server-tls.key")}, &output), 1);
    EXPECT_TRUE(output.contains(u"--ca-cert is not set"_s)) << output.toStdString();

    EXPECT_EQ(run({u"--version"_s}, &output), 0);
    EXPECT_TRUE(output.startsWith(u"nivogx-server "_s));
}

TEST_F(ServerProcessTest, SecretsAreOwnerOnlyAndLooserModesAreRefused) {
    const mode_t before = ::umask(022);
    const QString url =
        server.start({u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s, dataDir()});
    ::umask(before);
    ASSERT_FALSE(url.isEmpty());
    EXPECT_EQ(modeOf(dataDir()), 0700u);
    const QString database = QDir(dataDir()).filePath(u"accounts.db"_s);
    EXPECT_EQ(modeOf(database), 0600u);
    server.signal(SIGTERM);
    ASSERT_TRUE(server.process.waitForFinished(kStartBoundMs));

    ASSERT_EQ(::chmod(QFile::encodeName(database).constData(), 0644), 0);
    QString output;
    EXPECT_EQ(run({u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s, dataDir()}, &output), 1);
    EXPECT_TRUE(output.contains(u"chmod 600 '%1'"_s.arg(database))) << output.toStdString();
}

TEST_F(ServerProcessTest, SettingsFileFlagsWinAndRequestsAreLoggedWithoutPasswords) {
    const QString config = QDir(dir.path()).filePath(u"server.conf"_s);
    ASSERT_TRUE(putFile(config, "listen=127.0.0.1:0\ndata-dir=" + QFile::encodeName(dataDir()) +
                                    "\nmin-password-length=12\n"));
    const QString url =
        server.start({u"--config"_s, config, u"--dev"_s, u"--min-password-length"_s, u"9"_s});
    ASSERT_FALSE(url.isEmpty());

    const auto signUp = [&](const QByteArray& name, const QByteArray& password) {
        return exchange(url, post("/nivo/CreateProfile.aspx",
                                  "logInName=" + name + "&logInPassword=" + password));
    };
    EXPECT_TRUE(signUp("short", "eightchr").contains("Invalid Account Entry"));
    EXPECT_TRUE(signUp("long", "ninechars").contains("Profile created"));
    EXPECT_TRUE(exchange(url, "GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
                    .startsWith("HTTP/1.1 200"));
    ASSERT_TRUE(server.logged("/healthz"));
    EXPECT_TRUE(
        server.log.contains("127.0.0.1 /nivo/CreateProfile.aspx Profile created for long."));
    EXPECT_FALSE(server.log.contains("ninechars"));
}

TEST_F(ServerProcessTest, HangUpReloadsTheCertificateAndTerminateFinishesTheRequestUnderWay) {
    // The TLS files of a live server, replaced by a new certificate and key while it runs.
    const QString chain = QDir(dir.path()).filePath(u"tls.pem"_s);
    const QString key = QDir(dir.path()).filePath(u"tls.key"_s);
    ASSERT_TRUE(QFile::copy(dev("server-tls-chain.pem"), chain));
    ASSERT_TRUE(QFile::copy(dev("server-tls.key"), key));
    const QString url = server.start({u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s,
                                      dataDir(), u"--tls-cert"_s, chain, u"--tls-key"_s, key});
    ASSERT_FALSE(url.isEmpty());
    const auto servedCertificate = [&] {
        QSslSocket socket;
        return connectTo(socket, url) ? socket.peerCertificate() : QSslCertificate();
    };
    const QSslCertificate first = servedCertificate();
    ASSERT_FALSE(first.isNull());

    QFile::remove(chain);
    QFile::remove(key);
    QString output;
    ASSERT_EQ(QProcess::execute(u"openssl"_s,
                                {u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s,
                                 u"ec_paramgen_curve:prime256v1"_s, u"-nodes"_s, u"-keyout"_s, key,
                                 u"-out"_s, chain, u"-subj"_s, u"/CN=reloaded"_s, u"-days"_s, u"1"_s}),
              0);
    server.signal(SIGHUP);
    ASSERT_TRUE(server.logged("reloaded the TLS certificate"));
    const QSslCertificate second = servedCertificate();
    EXPECT_EQ(second.subjectInfo(QSslCertificate::CommonName), QStringList{u"reloaded"_s});

    // A sign-up (a key to generate) under way when asked to stop still gets its answer.
    QSslSocket socket;
    ASSERT_TRUE(connectTo(socket, url));
    socket.write(post("/nivo/CreateProfile.aspx", "logInName=last&logInPassword=password1"));
    ASSERT_TRUE(socket.waitForBytesWritten(kExchangeBoundMs));
    QThread::msleep(300);  // let it arrive; its key takes longer than that to make
    server.signal(SIGTERM);
    QByteArray answer;
    while (!answer.contains("Profile created") && socket.waitForReadyRead(kExchangeBoundMs)) {
        answer += socket.readAll();
    }
    EXPECT_TRUE(answer.contains("Profile created for last.")) << answer.toStdString();
    ASSERT_TRUE(server.process.waitForFinished(kStartBoundMs));
    EXPECT_EQ(server.process.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(server.process.exitCode(), 0);
}

TEST_F(ServerProcessTest, AccountsCanBeListedDisabledEnabledAndDeleted) {
    const QString url =
        server.start({u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s, dataDir()});
    ASSERT_FALSE(url.isEmpty());
    ASSERT_TRUE(exchange(url, post("/nivo/CreateProfile.aspx",
                                   "logInName=olga&logInPassword=password&email=o%40example.org"))
                    .contains("Profile created"));
    const auto admin = [&](const QStringList& command, QString* output = nullptr) {
        return run(QStringList{u"accounts"_s} + command + QStringList{u"--data-dir"_s, dataDir()},
                   output);
    };
    QString output;
    ASSERT_EQ(admin({u"disable"_s, u"Olga"_s}), 0);
    ASSERT_EQ(admin({u"list"_s}, &output), 0);
    EXPECT_TRUE(output.startsWith(u"olga\tdisabled\t"_s)) << output.toStdString();
    EXPECT_TRUE(output.contains(u"o@example.org"_s));
    // The running server sees it at once.
    const QByteArray lookUp = post("/nivo/GetId.aspx", "logInNameToRetrieve=olga");
    EXPECT_TRUE(exchange(url, lookUp).contains("is not registered"));
    ASSERT_EQ(admin({u"enable"_s, u"olga"_s}), 0);
    EXPECT_TRUE(exchange(url, lookUp).contains("\"Pfx\":["));
    ASSERT_EQ(admin({u"delete"_s, u"olga"_s}), 0);
    EXPECT_TRUE(exchange(url, lookUp).contains("is not registered"));
    EXPECT_EQ(admin({u"delete"_s, u"olga"_s}, &output), 1);
    EXPECT_TRUE(output.contains(u"no account named olga"_s));
    EXPECT_EQ(admin({u"rename"_s, u"olga"_s}), 1);
}

TEST_F(ServerProcessTest, AnOlderDatabaseIsUpdatedInPlaceAndANewerOneRefused) {
    // A database from before accounts could be disabled and before versions were recorded.
    ASSERT_TRUE(QDir().mkpath(dataDir()));
    ASSERT_EQ(::chmod(QFile::encodeName(dataDir()).constData(), 0700), 0);
    const QString database = QDir(dataDir()).filePath(u"accounts.db"_s);
    ASSERT_TRUE(writeDatabase(database,
                              {u"CREATE TABLE ACCOUNT (LoginName TEXT PRIMARY KEY, FirstName TEXT, "
                               "LastName TEXT, Email TEXT, PasswordSalt BLOB, PasswordHash BLOB, "
                               "PasswordIterations INTEGER, Pfx BLOB, Cer BLOB, "
                               "Created TEXT DEFAULT CURRENT_TIMESTAMP)"_s,
                               u"INSERT INTO ACCOUNT (LoginName, Email) VALUES ('olde', 'o@e.org')"_s}));
    ASSERT_EQ(::chmod(QFile::encodeName(database).constData(), 0600), 0);
    const QStringList list{u"accounts"_s, u"list"_s, u"--database"_s, u"sqlite:"_s + database};
    QString output;
    ASSERT_EQ(run(list, &output), 0) << output.toStdString();
    EXPECT_TRUE(output.startsWith(u"olde\tenabled\t"_s)) << output.toStdString();
    ASSERT_EQ(run({u"accounts"_s, u"disable"_s, u"olde"_s, u"--database"_s, u"sqlite:"_s + database}), 0);
    EXPECT_EQ(modeOf(database), 0600u);

    // Written by a newer server: refused, and left as it was.
    ASSERT_TRUE(writeDatabase(database, {u"UPDATE SCHEMA_VERSION SET Version = 99"_s}));
    EXPECT_EQ(run(list, &output), 1);
    EXPECT_TRUE(output.contains(u"version 99, newer than this nivogx-server knows"_s))
        << output.toStdString();
    EXPECT_EQ(run({u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s, dataDir()}, &output), 1);
    EXPECT_TRUE(output.contains(u"newer"_s)) << output.toStdString();
}

}  // namespace
