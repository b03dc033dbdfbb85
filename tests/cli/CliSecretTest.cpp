// The account password must not leak: not in a command line that other users can read, not in
// what the tool or the server print even with every log category on, not in any file the tool
// writes (the PKCS#12 holds a key derived from it, never the text), not in failure messages.
#include <QDirIterator>
#include <QThread>
#include <QUrl>

#include "CliTestKit.h"
#include "ServerProcess.h"
#include "TestFiles.h"

using namespace clitest;

namespace {

// Distinctive enough that no file holds it by chance.
const QString kSecret = u"Vq7#plover-Secret-40931"_s;
const QString kWrongSecret = u"Wx2#heron-Guess-77120"_s;

// The texts in every encoding a program might write them in.
QList<QByteArray> encodings(const QString& text) {
    QByteArray utf16le(reinterpret_cast<const char*>(text.utf16()), text.size() * 2);
    QByteArray utf16be = utf16le;
    for (qsizetype i = 0; i + 1 < utf16be.size(); i += 2) {
        std::swap(utf16be[i], utf16be[i + 1]);
    }
    return {text.toUtf8(), utf16le, utf16be, QUrl::toPercentEncoding(text)};
}

class CliSecretTest : public CliTest {
protected:
    void SetUp() override {
        CliTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        // The real server binary, talking as much as it can.
        ASSERT_TRUE(m_serverData.isValid());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"QT_LOGGING_RULES"_s, u"*=true"_s);
        m_url = m_serverProcess.start(
            {u"--dev"_s, u"--listen"_s, u"127.0.0.1:0"_s, u"--data-dir"_s, m_serverData.path()},
            env);
        ASSERT_FALSE(m_url.isEmpty()) << m_serverProcess.out.toStdString();
    }

    // Runs the tool with every log category on and keeps what it printed.
    CliRun cli(const User& user, const QStringList& arguments, const QByteArray& input = {}) {
        QProcessEnvironment verbose;
        verbose.insert(u"QT_LOGGING_RULES"_s, u"*=true"_s);
        const CliRun run = user.cli(arguments, m_url, input, verbose);
        m_printed += (run.out + run.err).toUtf8();
        // Qt's and the core's diagnostics too go out under the program's name.
        for (const QString& line : run.err.split(u'\n', Qt::SkipEmptyParts)) {
            EXPECT_TRUE(line.startsWith(u"nivogx-cli: "_s)) << line.toStdString();
        }
        return run;
    }

    // Where the secrets were found: "what: encoding n".
    QStringList leaks(const QByteArray& haystack, const QString& what) const {
        QStringList found;
        for (const QString& secret : {kSecret, kWrongSecret}) {
            const QList<QByteArray> forms = encodings(secret);
            for (qsizetype i = 0; i < forms.size(); ++i) {
                if (haystack.contains(forms[i])) {
                    found << u"%1 (form %2)"_s.arg(what).arg(i);
                }
            }
        }
        return found;
    }

    QTemporaryDir m_serverData;
    ServerProcess m_serverProcess;
    QByteArray m_printed;
};

TEST_F(CliSecretTest, ThePasswordAppearsNowhere) {
    const User nina(u"nina"_s, m_root.path());
    const User omar(u"omar"_s, m_root.path());
    const QByteArray secretLine = kSecret.toUtf8() + '\n';
    ASSERT_EQ(cli(omar, {u"signup"_s, u"omar"_s, u"--password-stdin"_s}, secretLine).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"signup"_s, u"nina"_s, u"--password-stdin"_s}, secretLine).exitCode, 0);

    // A sign-in waiting for its password: the command line and environment hold nothing secret.
    {
        QProcess waiting;
        nina.start(waiting, {u"signin"_s, u"nina"_s, u"--password-stdin"_s}, m_url);
        ASSERT_TRUE(waiting.waitForStarted());
        QThread::msleep(300);
        const QString proc = u"/proc/%1/"_s.arg(waiting.processId());
        const QByteArray commandLine = fileBytes(proc + u"cmdline"_s);
        EXPECT_TRUE(commandLine.contains("signin")) << commandLine.toStdString();
        EXPECT_EQ(leaks(commandLine + fileBytes(proc + u"environ"_s), u"argv"_s), QStringList());
        waiting.write(secretLine);
        waiting.closeWriteChannel();
        ASSERT_TRUE(waiting.waitForFinished(kRunBoundMs));
        EXPECT_EQ(waiting.exitCode(), 0);
        m_printed += waiting.readAll() + waiting.readAllStandardError();
    }

    // Failures name what went wrong, never the password tried.
    CliRun run = cli(nina, {u"signin"_s, u"nina"_s, u"--password-stdin"_s}, kWrongSecret.toUtf8() + '\n');
    EXPECT_EQ(run.exitCode, 1);
    // Among the log lines: the alert.
    EXPECT_TRUE(run.err.contains(u"\nnivogx-cli: Sign in Failed\nnivogx-cli: Wrong password\n"_s));
    ASSERT_EQ(cli(nina, {u"signin"_s, u"nina"_s, u"--password-stdin"_s}, secretLine).exitCode, 0);

    nina.write(u"plan.txt"_s, "the plan");
    ASSERT_EQ(cli(nina, {u"encrypt"_s, u"-r"_s, u"omar"_s, u"plan.txt"_s}).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"decrypt"_s, u"plan.txt.tvf"_s}).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"contacts"_s, u"export"_s, u"contacts"_s}).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"profile"_s, u"export"_s, u"profile"_s}).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"log"_s, u"export"_s, u"activity"_s}).exitCode, 0);
    ASSERT_EQ(cli(nina, {u"log"_s}).exitCode, 0);
    // The password asked for again once the store has lost it, first wrongly.
    NivoGXUtil::saveNivoCredentials(u"nina"_s, QString());
    run = cli(nina, {u"decrypt"_s, u"--password-stdin"_s, u"plan.txt.tvf"_s}, kWrongSecret.toUtf8() + '\n');
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_FALSE(run.err.isEmpty());
    EXPECT_EQ(cli(nina, {u"decrypt"_s, u"--password-stdin"_s, u"plan.txt.tvf"_s}, secretLine).exitCode, 0);

    m_serverProcess.stop();
    ASSERT_EQ(m_serverProcess.process.exitStatus(), QProcess::NormalExit);
    const QByteArray serverPrinted = m_serverProcess.out + m_serverProcess.log;
    // The verbose logging really was on.
    EXPECT_TRUE(m_printed.contains("qt.") || m_printed.contains("nivogx.")) << m_printed.left(300).toStdString();

    QStringList found = leaks(m_printed, u"the tool's output"_s) + leaks(serverPrinted, u"the server's output"_s);
    int files = 0;
    for (const QString& root : {nina.dataHome(), nina.configHome(), nina.files(), m_serverData.path()}) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            found += leaks(fileBytes(path), path);
            ++files;
        }
    }
    EXPECT_GE(files, 10) << "the key files, database, log, settings and exports were all searched";
    EXPECT_EQ(found, QStringList());
}

}  // namespace
