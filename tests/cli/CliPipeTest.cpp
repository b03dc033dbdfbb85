// Files through standard input and output: round trips, the release of decrypted content only
// once it checked out, and the refusals.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "CliTestKit.h"

using namespace Qt::Literals::StringLiterals;
using namespace clitest;

namespace {

TEST_F(CliTest, PipesCarryFilesBothWaysAndReleaseOnlyVerifiedContent) {
    ASSERT_NO_FATAL_FAILURE(signUp({"alice", "bob"}));
    const User& alice = *m_users[0];
    const User& bob = *m_users[1];
    QByteArray content;
    for (int i = 0; i < 40000; ++i) {
        content += QByteArray::number(i * 7919) + (i % 13 == 0 ? '\0' : '\n');
    }

    ASSERT_EQ(alice.signIn(m_url).exitCode, 0);
    CliRun run = alice.cli({u"encrypt"_s, u"-r"_s, u"bob"_s, u"-"_s}, m_url, content);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.err, QString()) << "standard output carries the result, nothing else";
    const QByteArray protectedBytes = run.rawOut;
    EXPECT_GT(protectedBytes.size(), content.size());
    EXPECT_EQ(QDir(alice.files()).entryList(QDir::Files | QDir::Hidden), QStringList());
    EXPECT_EQ(json(alice.cli({u"log"_s, u"--json"_s}, m_url).out).value(u"file"_s).toString(),
              u"(standard input)"_s);

    ASSERT_EQ(bob.signIn(m_url).exitCode, 0);
    run = bob.cli({u"decrypt"_s, u"-"_s}, m_url, protectedBytes);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.rawOut == content);
    EXPECT_EQ(run.err, u"nivogx-cli: (standard input) -> (standard output) (from alice)\n"_s);

    // A named file to standard output.
    bob.write(u"x.tvf"_s, protectedBytes);
    run = bob.cli({u"decrypt"_s, u"--stdout"_s, u"x.tvf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.rawOut == content);

    // One byte changed near the end: the signature fails after most of the content went by,
    // and none of it comes out.
    QByteArray tampered = protectedBytes;
    tampered[tampered.size() - 300] = static_cast<char>(tampered[tampered.size() - 300] ^ 0x01);
    run = bob.cli({u"decrypt"_s, u"-"_s}, m_url, tampered);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.rawOut.isEmpty()) << run.rawOut.size() << " bytes came out";
    EXPECT_TRUE(run.err.startsWith(u"nivogx-cli: (standard input): "_s)) << run.err.toStdString();
    EXPECT_EQ(QDir(bob.dataHome() + u"/NIVO-GX"_s).entryList({u".std*"_s}, QDir::AllEntries |
                                                                            QDir::Hidden),
              QStringList())
        << "no temporary left behind";

    // One file at a time, and standard input holds either the file or the password.
    EXPECT_EQ(bob.cli({u"decrypt"_s, u"-"_s, u"x.tvf"_s}, m_url).exitCode, 2);
    EXPECT_EQ(bob.cli({u"decrypt"_s, u"--json"_s, u"--stdout"_s, u"x.tvf"_s}, m_url).exitCode, 2);
    EXPECT_EQ(bob.cli({u"decrypt"_s, u"--password-stdin"_s, u"-"_s}, m_url).exitCode, 2);
}

TEST_F(CliTest, AResultThatCannotGoOutFailsTheRunAndATerminalIsRefused) {
    ASSERT_NO_FATAL_FAILURE(signUp({"olga"}));
    const User& olga = *m_users[0];
    ASSERT_EQ(olga.signIn(m_url).exitCode, 0);
    // More than a pipe holds, so that a reader gone is noticed.
    olga.write(u"notes.txt"_s, QByteArray("a line of notes\n").repeated(20000));
    ASSERT_EQ(olga.cli({u"encrypt"_s, u"notes.txt"_s}, m_url).exitCode, 0);

    const auto runTo = [&](const QStringList& arguments, const QString& output) {
        QProcess process;
        process.setStandardOutputFile(output);
        olga.start(process, arguments, m_url);
        EXPECT_TRUE(process.waitForFinished(kRunBoundMs));
        return std::pair{process.exitCode(), QString::fromUtf8(process.readAllStandardError())};
    };
    for (const QStringList& arguments :
         {QStringList{u"decrypt"_s, u"--stdout"_s, u"notes.txt.tvf"_s},
          QStringList{u"encrypt"_s, u"--armor"_s, u"--stdout"_s, u"notes.txt"_s}}) {
        const auto [exit, err] = runTo(arguments, u"/dev/full"_s);
        EXPECT_EQ(exit, 1) << err.toStdString();
        EXPECT_TRUE(err.startsWith(u"nivogx-cli: notes.txt"_s)) << err.toStdString();
        EXPECT_TRUE(err.endsWith(u": Cannot write to standard output: No space left on device\n"_s))
            << err.toStdString();
        const QStringList log = olga.cli({u"log"_s, u"--json"_s}, m_url).out.split(u'\n');
        EXPECT_EQ(json(log.value(log.size() - 2)).value(u"status"_s).toString(), u"Failed"_s);
    }

    // A reader that goes away.
    QProcess shell;
    olga.start(
        shell,
        {u"-c"_s, u"\"$0\" decrypt --stdout notes.txt.tvf | head -c 0; exit ${PIPESTATUS[0]}"_s,
         QStringLiteral(NIVOGX_CLI_PATH)},
        m_url, {}, u"bash"_s);
    ASSERT_TRUE(shell.waitForFinished(kRunBoundMs));
    EXPECT_EQ(shell.exitCode(), 1);
    EXPECT_TRUE(shell.readAllStandardError().endsWith("Broken pipe\n"));

    // A terminal: the pseudo-terminal's other side.
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const auto [exit, err] = runTo({u"decrypt"_s, u"--stdout"_s, u"notes.txt.tvf"_s},
                                   QString::fromLocal8Bit(::ptsname(terminal)));
    ::close(terminal);
    EXPECT_EQ(exit, 2);
    EXPECT_TRUE(err.startsWith(u"nivogx-cli: Standard output is a terminal"_s))
        << err.toStdString();
}

TEST_F(CliTest, ArmouredFilesOpenHereAndWithOpenssl) {
    ASSERT_NO_FATAL_FAILURE(signUp({"alice", "bob"}));
    const User& alice = *m_users[0];
    const User& bob = *m_users[1];
    const QByteArray content = QByteArray("for the mail\n").repeated(3000);
    ASSERT_EQ(alice.signIn(m_url).exitCode, 0);
    alice.write(u"note.txt"_s, content);
    CliRun run = alice.cli({u"encrypt"_s, u"--armor"_s, u"-r"_s, u"bob"_s, u"note.txt"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, u"note.txt -> %1/note.txt.tvf\n"_s.arg(alice.files()));
    QFile armoured(alice.files() + u"/note.txt.tvf"_s);
    ASSERT_TRUE(armoured.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = armoured.readAll().split('\n');
    ASSERT_GT(lines.size(), 3);
    EXPECT_EQ(lines.first(), "-----BEGIN CMS-----");
    EXPECT_EQ(lines.at(lines.size() - 2), "-----END CMS-----");
    EXPECT_EQ(lines.at(1).size(), 64);
    // The same to standard output.
    run = alice.cli({u"encrypt"_s, u"--armor"_s, u"-r"_s, u"bob"_s, u"--stdout"_s, u"note.txt"_s},
                    m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.rawOut.startsWith("-----BEGIN CMS-----\n"));

    // openssl opens it with bob's key.
    ASSERT_EQ(bob.signIn(m_url).exitCode, 0);
    const QString work = bob.files();
    const QString nivo = bob.dataHome() + u"/NIVO-GX"_s;
    openssl(work, {u"pkcs12"_s, u"-in"_s, nivo + u"/pfx/bob.pfx"_s, u"-passin"_s,
                   u"pass:"_s + kPassword, u"-nodes"_s, u"-out"_s, u"bob.pem"_s});
    openssl(work, {u"cms"_s, u"-decrypt"_s, u"-inform"_s, u"PEM"_s, u"-in"_s,
                   armoured.fileName(), u"-inkey"_s, u"bob.pem"_s, u"-out"_s, u"signed.der"_s});
    EXPECT_TRUE(openssl(work, {u"cms"_s, u"-verify"_s, u"-noverify"_s, u"-inform"_s, u"DER"_s,
                               u"-in"_s, u"signed.der"_s}) == content);

    // Here: PEM under either label, and S/MIME as openssl writes it.
    QFile::copy(armoured.fileName(), work + u"/cms.tvf"_s);
    armoured.seek(0);
    bob.write(u"pkcs7.tvf"_s, armoured.readAll().replace("CMS-----", "PKCS7-----"));
    openssl(work, {u"cms"_s, u"-cmsout"_s, u"-inform"_s, u"PEM"_s, u"-in"_s, u"cms.tvf"_s,
                   u"-outform"_s, u"SMIME"_s, u"-out"_s, u"smime.eml"_s});
    for (const QString& name : {u"cms.tvf"_s, u"pkcs7.tvf"_s, u"smime.eml"_s}) {
        run = bob.cli({u"decrypt"_s, u"--stdout"_s, name}, m_url);
        EXPECT_EQ(run.exitCode, 0) << name.toStdString() << ": " << run.err.toStdString();
        EXPECT_TRUE(run.rawOut == content) << name.toStdString();
    }
    run = bob.cli({u"inspect"_s, u"--json"_s, u"smime.eml"_s}, m_url);
    EXPECT_EQ(json(run.out).value(u"recipients"_s).toArray().size(), 2) << run.out.toStdString();

    // Armour that does not hold one whole message is refused, saying why.
    armoured.seek(0);
    const QByteArray pem = armoured.readAll();
    bob.write(u"broken.tvf"_s, "-----BEGIN CMS-----\nnot base64!\n-----END CMS-----\n");
    bob.write(u"cut.tvf"_s, pem.left(pem.indexOf("-----END")));
    bob.write(u"pasted.tvf"_s, QByteArray(pem).replace("-----END CMS", "-----END PKCS7"));
    for (const auto& [name, why] :
         {std::pair{u"broken.tvf"_s, u"(bad PEM or S/MIME armour)."_s},
          std::pair{u"cut.tvf"_s, u"has no END line (bad PEM armour): it was cut short."_s},
          std::pair{u"pasted.tvf"_s, u"ends with \"-----END PKCS7-----\" instead"_s}}) {
        run = bob.cli({u"decrypt"_s, name}, m_url);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(why)) << run.err.toStdString();
    }
    EXPECT_EQ(QDir(work).entryList({u"broken*"_s, u"cut*"_s, u"pasted*"_s}),
              (QStringList{u"broken.tvf"_s, u"cut.tvf"_s, u"pasted.tvf"_s}));
}

}  // namespace
