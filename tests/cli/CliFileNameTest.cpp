// File names that fight the tool's own formats: the log's " | " separator, line breaks, and
// bytes that are not UTF-8. Protecting and opening keep working on the names they can reach, the
// log keeps its other lines readable, and a name the tool cannot reach is refused clearly.
#include <cstdio>

#include "CliTestKit.h"
#include "TestFiles.h"

using namespace clitest;

namespace {

TEST_F(CliTest, NamesWithSeparatorsAndLineBreaksRoundTrip) {
    ASSERT_NO_FATAL_FAILURE(signUp({"pia"}));
    const User& pia = *m_users[0];
    ASSERT_EQ(pia.signIn(m_url).exitCode, 0);
    const QString back = pia.files() + u"/back"_s;
    ASSERT_TRUE(QDir().mkpath(back));

    for (const QString& name : {u"a | b.txt"_s, u"two\nlines.txt"_s, u" | .txt"_s,
                                u"tab\there \u00e9\u4e2d.txt"_s}) {
        const QByteArray content = "content of " + name.toUtf8();
        pia.write(name, content);
        CliRun run = pia.cli({u"encrypt"_s, u"--json"_s, name}, m_url);
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        // One JSON line per file, whatever the name holds.
        ASSERT_EQ(run.out.count(u'\n'), 1) << run.out.toStdString();
        const QString sealed = json(run.out).value(u"output"_s).toString();
        EXPECT_EQ(sealed, pia.files() + u'/' + name + u".tvf"_s);

        run = pia.cli({u"decrypt"_s, u"--json"_s, u"-o"_s, back, sealed}, m_url);
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_EQ(json(run.out).value(u"output"_s).toString(), back + u'/' + name);
        EXPECT_EQ(fileBytes(back + u'/' + name), content);
    }

    // The log escapes control characters and skips a line whose path carries " | "
    // (HostileLogTest); printed for a person, no name reaches the terminal with its controls.
    pia.write(u"plain.txt"_s, "plain");
    ASSERT_EQ(pia.cli({u"encrypt"_s, u"plain.txt"_s}, m_url).exitCode, 0);
    const CliRun printed = pia.cli({u"log"_s}, m_url);
    EXPECT_EQ(printed.out.count(u'\n'), 5) << printed.out.toStdString();
    EXPECT_FALSE(printed.out.contains(u'\t'));
    pia.write(u"\x1b]0;owned\x07.txt"_s, "escape");
    const CliRun sealed = pia.cli({u"encrypt"_s, u"\x1b]0;owned\x07.txt"_s}, m_url);
    ASSERT_EQ(sealed.exitCode, 0) << sealed.err.toStdString();
    EXPECT_EQ(sealed.out, u"\\x1b]0;owned\\x07.txt -> %1/\\x1b]0;owned\\x07.txt.tvf\n"_s.arg(
                              pia.files()));
}

TEST_F(CliTest, ANameThatIsNotUtf8IsRefusedWithoutWritingAnything) {
    ASSERT_NO_FATAL_FAILURE(signUp({"quinn"}));
    const User& quinn = *m_users[0];
    ASSERT_EQ(quinn.signIn(m_url).exitCode, 0);
    // Latin-1 "café.txt", as an old archive or another system may have named it.
    const QByteArray rawPath = QFile::encodeName(quinn.files()) + "/caf\xe9.txt";
    FILE* raw = std::fopen(rawPath.constData(), "wb");
    ASSERT_NE(raw, nullptr);
    std::fputs("latin", raw);
    std::fclose(raw);
    const QStringList before = QDir(quinn.files()).entryList(QDir::Files | QDir::Hidden);

    // Through the shell, so that the argument is the raw byte and not Qt's re-encoding of it. Qt
    // reads command lines and file names as UTF-8, so the tool cannot name this file back to the
    // system: it says the file is not there, and writes nothing.
    QProcess process;
    quinn.start(process,
                {u"-c"_s, u"exec \"$0\" encrypt \"$(printf 'caf\\351.txt')\""_s,
                 QStringLiteral(NIVOGX_CLI_PATH)},
                m_url, {}, u"/bin/sh"_s);
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished(kRunBoundMs));
    EXPECT_EQ(process.exitCode(), 1);
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_TRUE(err.endsWith(u"/caf\ufffd.txt does not exists.\n"_s)) << err.toStdString();
    EXPECT_EQ(QDir(quinn.files()).entryList(QDir::Files | QDir::Hidden), before);
    EXPECT_EQ(quinn.cli({u"log"_s}, m_url).out, QString());
}

}  // namespace
