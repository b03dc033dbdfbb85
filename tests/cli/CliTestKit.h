#pragma once

// What the command-line tests share: simulated users, each with data and config folders of their
// own, who run the real nivogx-cli against the real account server.

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <memory>

#include "ServerThread.h"
#include "TestFiles.h"
#include "TestPki.h"
#include "session/NivoGXUtil.h"

namespace clitest {

using namespace Qt::Literals::StringLiterals;

// A bound on one run of the tool, so that a hang fails the test instead of stalling the suite.
constexpr int kRunBoundMs = 120'000;

inline const QString kPassword = u"Correct horse 1"_s;

struct CliRun {
    int exitCode = -1;
    QString out;
    QString err;
    QByteArray rawOut;  // standard output as bytes, for results written there
};

// One simulated person: a home of their own, and the tool run as them.
class User {
public:
    User(QString name, const QString& root)
        : m_name(std::move(name)), m_home(root + u'/' + m_name) {
        QDir().mkpath(dataHome());
        QDir().mkpath(configHome());
        QDir().mkpath(files());
    }

    [[nodiscard]] const QString& name() const { return m_name; }
    [[nodiscard]] QString dataHome() const { return m_home + u"/data"_s; }
    [[nodiscard]] QString configHome() const { return m_home + u"/config"_s; }
    [[nodiscard]] QString files() const { return m_home + u"/files"_s; }

    // Starts the tool as this user; `extraEnvironment` adds to or overrides what it gets.
    // `program` replaces the tool, e.g. with a shell that runs it.
    void start(QProcess& process, const QStringList& arguments, const QString& server,
               const QProcessEnvironment& extraEnvironment = {},
               const QString& program = QStringLiteral(NIVOGX_CLI_PATH)) const {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_DATA_HOME"_s, dataHome());
        env.insert(u"XDG_CONFIG_HOME"_s, configHome());
        env.insert(u"NIVOGX_SERVER"_s, server);
        env.insert(extraEnvironment);
        process.setProcessEnvironment(env);
        process.setWorkingDirectory(files());
        process.start(program, arguments);
    }

    CliRun cli(const QStringList& arguments, const QString& server, const QByteArray& input = {},
               const QProcessEnvironment& extraEnvironment = {}) const {
        QProcess process;
        start(process, arguments, server, extraEnvironment);
        process.write(input);
        process.closeWriteChannel();
        CliRun run;
        if (!process.waitForFinished(kRunBoundMs)) {
            process.kill();
            process.waitForFinished();
            run.err = u"did not finish"_s;
            return run;
        }
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        run.rawOut = process.readAllStandardOutput();
        run.out = QString::fromUtf8(run.rawOut);
        run.err = QString::fromUtf8(process.readAllStandardError());
        return run;
    }

    CliRun signIn(const QString& server) const {
        return cli({u"signin"_s, m_name, u"--password-stdin"_s}, server, kPassword.toUtf8() + '\n');
    }

    QString write(const QString& fileName, const QByteArray& content) const {
        const QString path = files() + u'/' + fileName;
        EXPECT_TRUE(putFile(path, content)) << path.toStdString();
        return path;
    }

private:
    QString m_name;
    QString m_home;
};

inline QString firstLine(const QString& text) {
    return text.section(u'\n', 0, 0);
}

inline QJsonObject json(const QString& line) {
    return QJsonDocument::fromJson(line.trimmed().toUtf8()).object();
}

// Runs the openssl command in `dir`; its standard output.
inline QByteArray openssl(const QString& dir, const QStringList& arguments) {
    QProcess process;
    process.setWorkingDirectory(dir);
    process.start(u"openssl"_s, arguments);
    EXPECT_TRUE(process.waitForFinished(kRunBoundMs));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    return process.readAllStandardOutput();
}

inline bool useRealSecretService() {
    return qEnvironmentVariable("NIVOGX_TEST_SECRET_SERVICE") == u"1"_s;
}

class CliTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!useRealSecretService()) {
            GTEST_SKIP() << "no private Secret Service (run through scripts/test)";
        }
        ASSERT_TRUE(m_root.isValid());
        m_server = std::make_unique<ServerThread>();
        m_url = m_server->baseUrl();
    }

    // Creates accounts for the names given, each with its own home. Call it inside
    // ASSERT_NO_FATAL_FAILURE: a failed sign-up must end the test, not leave it without users.
    void signUp(std::initializer_list<const char*> names) {
        for (const char* name : names) {
            auto user = std::make_unique<User>(QString::fromLatin1(name), m_root.path());
            const CliRun run = user->cli({u"signup"_s, user->name(), u"--password-stdin"_s}, m_url,
                                         kPassword.toUtf8() + '\n');
            ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
            m_users.push_back(std::move(user));
        }
    }

    // A protected file for `recipient` ("forged" in the recipient's files), signed with a
    // self-made certificate that calls itself `claimedName`: what anyone with the openssl
    // command can make.
    QString forgeFileFor(const User& recipient, const QString& claimedName,
                         const QByteArray& content) const {
        TestPki forger;
        const TestPki::Identity self = forger.createSelfSigned(claimedName);
        TestPki::Identity to;
        to.certPath =
            forger.writeFile(u"recipient.pem"_s,
                             forger.openssl({u"x509"_s, u"-inform"_s, u"DER"_s},
                                            fileBytes(recipient.dataHome() + u"/NIVO-GX/cert/"_s +
                                                      recipient.name() + u".cer"_s)));
        const QString path = recipient.files() + u"/forged.tvf"_s;
        EXPECT_TRUE(putFile(path, forger.encrypt(forger.sign(content, {&self}), {&to})));
        return path;
    }

    QTemporaryDir m_root;
    std::unique_ptr<ServerThread> m_server;
    QString m_url;
    std::vector<std::unique_ptr<User>> m_users;
};

}  // namespace clitest
