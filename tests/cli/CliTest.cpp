// Runs the real nivogx-cli against the real account server, with each simulated user in data and
// config folders of their own. Sign-ins go to the session's Secret Service, which holds a single
// record, so users take turns: each step signs its user in first.

#include "CliTestKit.h"
#include "ScriptedHttpsServer.h"

using namespace Qt::Literals::StringLiterals;
using namespace clitest;

namespace {

TEST_F(CliTest, FilesGoOnlyToTheirRecipientsAndNameTheSender) {
    ASSERT_NO_FATAL_FAILURE(signUp({"alice", "bob", "carol"}));
    const User& alice = *m_users[0];
    const User& bob = *m_users[1];
    const User& carol = *m_users[2];

    ASSERT_EQ(alice.signIn(m_url).exitCode, 0);
    EXPECT_EQ(alice.cli({u"whoami"_s}, m_url).out, u"alice\n"_s);
    const QString report = alice.write(u"report.pdf"_s, "quarterly figures");

    // Bob is not a contact yet: he is looked up on the server and kept.
    CliRun run = alice.cli({u"encrypt"_s, u"-r"_s, u"Bob"_s, u"report.pdf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, u"report.pdf -> %1.tvf\n"_s.arg(report));
    EXPECT_EQ(alice.cli({u"contacts"_s, u"list"_s}, m_url).out, u"bob\n"_s);

    // A second run neither overwrites the first result nor asks the server again.
    run = alice.cli(
        {u"encrypt"_s, u"--json"_s, u"-r"_s, u"bob"_s, u"report.pdf"_s, u"missing.txt"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2) << run.out.toStdString();
    EXPECT_EQ(json(lines[0]).value(u"output"_s).toString(),
              alice.files() + u"/report(1).pdf.tvf"_s);
    EXPECT_EQ(json(lines[0]).value(u"outcome"_s).toString(), QString());
    EXPECT_FALSE(json(lines[0]).contains(u"sender"_s));
    EXPECT_TRUE(json(lines[1]).value(u"output"_s).isNull());
    EXPECT_EQ(json(lines[1]).value(u"outcome"_s).toString(),
              u"%1/missing.txt does not exists."_s.arg(alice.files()));

    run = alice.cli({u"encrypt"_s, u"--last-used"_s, u"-o"_s, u"sent"_s, u"report.pdf"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1) << "no such folder";
    ASSERT_TRUE(QDir(alice.files()).mkdir(u"sent"_s));
    run = alice.cli({u"encrypt"_s, u"--last-used"_s, u"-o"_s, u"sent"_s, u"report.pdf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QString resent = alice.files() + u"/sent/report.pdf.tvf"_s;
    EXPECT_EQ(run.out, u"report.pdf -> %1\n"_s.arg(resent));

    run = alice.cli({u"encrypt"_s, u"-r"_s, u" ALICE "_s, u"report.pdf"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(firstLine(run.err), u"nivogx-cli: Unable to add self."_s);
    run = alice.cli({u"encrypt"_s, u"-r"_s, u"nobody"_s, u"report.pdf"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(firstLine(run.err), u"nivogx-cli: User does not exists"_s);
    EXPECT_FALSE(QFileInfo::exists(alice.files() + u"/report(2).pdf.tvf"_s));

    // The outside of the file names its recipients; the user and contacts are recognised.
    run = alice.cli({u"inspect"_s, u"--json"_s, u"report.pdf.tvf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QJsonObject inspection = json(run.out);
    EXPECT_EQ(inspection.value(u"layer"_s).toString(), u"EnvelopedData"_s);
    EXPECT_EQ(inspection.value(u"contentEncryption"_s).toString(), u"aes-256-cbc"_s);
    QStringList named;
    for (const auto& recipient : inspection.value(u"recipients"_s).toArray()) {
        named << recipient.toObject().value(u"nivoId"_s).toString();
    }
    named.sort();
    EXPECT_EQ(named, (QStringList{u"alice"_s, u"bob"_s}));
    run = alice.cli({u"inspect"_s, resent}, m_url);
    EXPECT_TRUE(run.out.contains(u"\n  bob  key transport"_s)) << run.out.toStdString();
    run = alice.cli({u"inspect"_s, u"report.pdf"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(u"nivogx-cli: report.pdf: Unrecognized top level CMS encoding"_s))
        << run.err.toStdString();

    // Only runs that got under way are logged.
    run = alice.cli(
        {u"log"_s, u"--json"_s, u"--type"_s, u"encrypt"_s, u"--search"_s, u" REPORT "_s}, m_url);
    const QStringList logLines = run.out.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(logLines.size(), 3) << run.out.toStdString();
    for (const QString& line : logLines) {
        EXPECT_EQ(json(line).value(u"file"_s).toString(), report);
        EXPECT_EQ(json(line).value(u"recipients"_s).toString(), u"bob,alice"_s);
        EXPECT_EQ(json(line).value(u"status"_s).toString(), u"Success"_s);
    }
    EXPECT_EQ(alice.cli({u"log"_s, u"--type"_s, u"decrypt"_s}, m_url).out, QString());

    // Bob opens it in a folder of his choice; a name already taken there gets a number.
    const QString outBox = bob.files() + u"/in"_s;
    ASSERT_TRUE(QDir().mkpath(outBox));
    ASSERT_TRUE(QFile::copy(report + u".tvf"_s, bob.files() + u"/report.pdf.tvf"_s));
    ASSERT_EQ(bob.signIn(m_url).exitCode, 0);
    run = bob.cli({u"decrypt"_s, u"-o"_s, outBox, u"report.pdf.tvf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, u"report.pdf.tvf -> %1/report.pdf (from alice)\n"_s.arg(outBox));
    // The folder is remembered for the next run.
    run = bob.cli({u"decrypt"_s, u"--json"_s, u"report.pdf.tvf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(json(run.out).value(u"output"_s).toString(), outBox + u"/report(1).pdf"_s);
    EXPECT_EQ(json(run.out).value(u"sender"_s).toString(), u"alice"_s);
    EXPECT_EQ(json(run.out).value(u"verified"_s), QJsonValue(true));
    EXPECT_EQ(json(run.out).value(u"trust"_s).toString(), QString());
    QFile opened(outBox + u"/report(1).pdf"_s);
    ASSERT_TRUE(opened.open(QIODevice::ReadOnly));
    EXPECT_EQ(opened.readAll(), "quarterly figures");

    // Somebody calling himself alice with a certificate of his own: the file opens, named as
    // always, with the warning; required to be verified, it fails and leaves nothing.
    ASSERT_EQ(bob.cli({u"contacts"_s, u"add"_s, u"alice"_s}, m_url).exitCode, 0);
    const QString forged = forgeFileFor(bob, u"alice"_s, "not from alice");
    run = bob.cli({u"decrypt"_s, u"-o"_s, outBox, forged}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, u"%1 -> %2/forged (from alice; NOT VERIFIED: self-signed certificate; not "
                       "the certificate stored for contact alice)\n"_s.arg(forged, outBox));
    run = bob.cli({u"decrypt"_s, u"--json"_s, u"--require-verified"_s, u"-o"_s, outBox, forged},
                  m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(json(run.out).value(u"verified"_s), QJsonValue(false));
    EXPECT_EQ(json(run.out).value(u"outcome"_s).toString(),
              u"Decryption failed. The sender is not verified: self-signed certificate; not the "
              "certificate stored for contact alice."_s);
    EXPECT_FALSE(QFileInfo::exists(outBox + u"/forged(1)"_s));
    EXPECT_TRUE(bob.cli({u"log"_s}, m_url).out.endsWith(u" |  | Failed\n"_s));
    run = bob.cli({u"contacts"_s, u"show"_s, u"ALICE"_s}, m_url);
    EXPECT_TRUE(run.out.contains(u"\nVerified: yes, issued by the account service\n"_s))
        << run.out.toStdString();
    EXPECT_TRUE(run.out.contains(u"\nSHA-256:  "_s)) << run.out.toStdString();

    run = bob.cli({u"log"_s, u"--sort"_s, u"File"_s}, m_url);
    EXPECT_EQ(run.out.count(u" | Decrypt | "_s), 4) << run.out.toStdString();
    EXPECT_TRUE(run.out.endsWith(u" | alice | Success\n"_s)) << run.out.toStdString();
    ASSERT_EQ(bob.cli({u"log"_s, u"export"_s, u"activity"_s}, m_url).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(bob.files() + u"/activity.log"_s));
    run = bob.cli({u"log"_s, u"export"_s, u"activity.log/x"_s}, m_url);  // under a file
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(u"Unable to export Log file. The folder "_s))
        << run.err.toStdString();
    ASSERT_EQ(bob.cli({u"log"_s, u"clear"_s}, m_url).exitCode, 0);
    EXPECT_EQ(bob.cli({u"log"_s}, m_url).out, QString());

    ASSERT_TRUE(QFile::copy(report + u".tvf"_s, carol.files() + u"/report.pdf.tvf"_s));
    ASSERT_EQ(carol.signIn(m_url).exitCode, 0);
    // A stranger sees certificates, not names.
    run = carol.cli({u"inspect"_s, u"--json"_s, u"report.pdf.tvf"_s}, m_url);
    const QJsonArray strangers = json(run.out).value(u"recipients"_s).toArray();
    ASSERT_EQ(strangers.size(), 2) << run.out.toStdString();
    EXPECT_TRUE(strangers[0].toObject().value(u"nivoId"_s).isNull());
    EXPECT_FALSE(strangers[0].toObject().value(u"issuer"_s).toString().isEmpty());
    run = carol.cli({u"decrypt"_s, u"report.pdf.tvf"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, QString());
    EXPECT_EQ(run.err,
              u"nivogx-cli: report.pdf.tvf: Decryption failed. You are not the recipient of the file.\n"_s)
        << run.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(carol.files() + u"/report.pdf"_s));
}

TEST_F(CliTest, ContactsAndProfileCarryOverToAnOfflineSignIn) {
    ASSERT_NO_FATAL_FAILURE(signUp({"dave", "erin"}));
    const User& dave = *m_users[0];
    ASSERT_EQ(dave.signIn(m_url).exitCode, 0);
    ASSERT_EQ(dave.cli({u"contacts"_s, u"add"_s, u"erin"_s}, m_url).exitCode, 0);
    EXPECT_EQ(dave.cli({u"contacts"_s, u"add"_s, u"ERIN"_s}, m_url).out,
              u"erin is already a contact.\n"_s);

    // With --json every answer, success or failure, is one JSON object.
    EXPECT_FALSE(json(dave.cli({u"contacts"_s, u"add"_s, u"erin"_s, u"--json"_s}, m_url).out)
                     .value(u"added"_s)
                     .toBool(true));
    CliRun run = dave.cli({u"contacts"_s, u"export"_s, u"backup"_s, u"--json"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(json(run.out).value(u"exported"_s).toString(), dave.files() + u"/backup.cbkm"_s);
    run = dave.cli({u"contacts"_s, u"show"_s, u"erin"_s, u"--json"_s}, m_url);
    EXPECT_EQ(json(run.out).value(u"sha256"_s).toString().size(), 95) << run.out.toStdString();
    run = dave.cli({u"contacts"_s, u"remove"_s, u"erin"_s, u"--json"_s}, m_url);
    EXPECT_TRUE(json(run.out).value(u"removed"_s).toBool());
    EXPECT_EQ(dave.cli({u"contacts"_s, u"list"_s}, m_url).out, QString());
    run = dave.cli({u"contacts"_s, u"remove"_s, u"erin"_s, u"--json"_s}, m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(json(run.out).value(u"error"_s).toString(), u"No contact erin."_s);
    run = dave.cli({u"contacts"_s, u"import"_s, u"backup.cbkm"_s, u"--json"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(json(run.out).contains(u"imported"_s));
    run = dave.cli({u"contacts"_s, u"list"_s, u"--json"_s}, m_url);
    EXPECT_EQ(json(run.out).value(u"nivoId"_s).toString(), u"erin"_s);

    ASSERT_EQ(dave.cli({u"profile"_s, u"export"_s, u"dave.VTS"_s}, m_url).exitCode, 0);
    const QString profileFile = dave.files() + u"/dave.VTS"_s;
    ASSERT_TRUE(QFileInfo::exists(profileFile));
    ASSERT_EQ(dave.cli({u"signout"_s}, m_url).exitCode, 0);
    EXPECT_EQ(dave.cli({u"whoami"_s}, m_url).exitCode, 1);

    // --server wins over the environment.
    const User desk(u"dave"_s, m_root.path() + u"/desk"_s);
    run = desk.cli({u"--server"_s, m_url, u"signin"_s, u"dave"_s, u"--password-stdin"_s},
                   u"https://127.0.0.1:9"_s, kPassword.toUtf8() + '\n');
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();

    // On a new machine, with the server gone.
    m_server.reset();
    const User laptop(u"dave"_s, m_root.path() + u"/laptop"_s);
    run = laptop.signIn(m_url);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(firstLine(run.err), u"nivogx-cli: Unable to connect to NIVO Server"_s);

    run = laptop.cli(
        {u"signin"_s, u"dave"_s, u"--password-stdin"_s, u"--profile-file"_s, profileFile}, m_url,
        "wrong password\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, u"nivogx-cli: Sign in Failed\nnivogx-cli: Invalid password\n"_s);
    run = laptop.cli(
        {u"signin"_s, u"dave"_s, u"--password-stdin"_s, u"--profile-file"_s, profileFile}, m_url,
        kPassword.toUtf8() + '\n');
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(laptop.cli({u"whoami"_s}, m_url).out, u"dave\n"_s);
    EXPECT_EQ(laptop.cli({u"contacts"_s, u"list"_s}, m_url).out, u"erin\n"_s);

    // Encrypting for a known contact needs no server.
    laptop.write(u"notes.txt"_s, "offline");
    run = laptop.cli({u"encrypt"_s, u"-r"_s, u"erin"_s, u"notes.txt"_s}, m_url);
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();

    // With the password gone from the store but the key files still there, a run asks for it.
    run = laptop.cli({u"decrypt"_s, u"--password-stdin"_s, u"notes.txt.tvf"_s}, m_url);
    ASSERT_EQ(run.exitCode, 0) << "a stored password is used: " << run.err.toStdString();
    NivoGXUtil::saveNivoCredentials(u"dave"_s, QString());
    EXPECT_EQ(laptop.cli({u"whoami"_s}, m_url).exitCode, 1);
    EXPECT_EQ(laptop.cli({u"decrypt"_s, u"notes.txt.tvf"_s}, m_url).exitCode, 1)
        << "no terminal to ask on";
    run = laptop.cli({u"decrypt"_s, u"--password-stdin"_s, u"notes.txt.tvf"_s}, m_url, "not it\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.startsWith(u"nivogx-cli: notes.txt.tvf: "_s)) << run.err.toStdString();
    run = laptop.cli({u"decrypt"_s, u"--password-stdin"_s, u"notes.txt.tvf"_s}, m_url,
                     kPassword.toUtf8() + '\n');
    EXPECT_EQ(run.out, u"notes.txt.tvf -> %1/notes(2).txt (from dave)\n"_s.arg(laptop.files()))
        << run.err.toStdString();
}

// Checks that refuse before anything is stored or sent.
TEST(CliUsage, RefusesBadInputWithTheSystemsTexts) {
    QTemporaryDir root;
    const User user(u"frank"_s, root.path());
    // Nothing listens here: a check that went to the server would say so.
    const QString nowhere = u"https://127.0.0.1:9"_s;

    CliRun run = user.cli({u"frobnicate"_s}, nowhere);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(firstLine(run.err), u"nivogx-cli: Unknown command: frobnicate"_s);
    EXPECT_EQ(user.cli({u"encrypt"_s}, nowhere).exitCode, 2);
    EXPECT_EQ(user.cli({u"contacts"_s, u"add"_s}, nowhere).exitCode, 2);
    EXPECT_EQ(user.cli({u"decrypt"_s, u"--bogus"_s, u"x.tvf"_s}, nowhere).exitCode, 2);
    run = user.cli({u"encrypt"_s, u"--help"_s}, nowhere);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.contains(u"nivogx-cli encrypt"_s)) << run.out.toStdString();

    EXPECT_EQ(user.cli({u"log"_s, u"--sort"_s, u"Colour"_s}, nowhere).exitCode, 2);

    run = user.cli({u"signin"_s, u"   "_s, u"--password-stdin"_s}, nowhere, "secret\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, u"nivogx-cli: Username required\nnivogx-cli: Please enter your NIVO username.\n"_s);
    run = user.cli({u"signin"_s, u"frank"_s, u"--password-stdin"_s}, nowhere, "  \n");
    EXPECT_EQ(run.err, u"nivogx-cli: Password required\nnivogx-cli: Please enter your NIVO password.\n"_s);
    run = user.cli({u"signin"_s, u"frank"_s}, nowhere);
    EXPECT_EQ(run.exitCode, 1) << "no terminal to ask on";

    run = user.cli({u"signup"_s, u"frank!"_s, u"--password-stdin"_s}, nowhere, "secret\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(firstLine(run.err), u"nivogx-cli: Username is not considered valid"_s);

    // A usage error leaves standard output to the results.
    run = user.cli({}, nowhere);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.out, QString());
    EXPECT_TRUE(run.err.startsWith(u"nivogx-cli: No command given.\nUsage: "_s))
        << run.err.toStdString();
    // With --json a failure is an object too.
    run = user.cli({u"inspect"_s, u"--json"_s, u"missing.tvf"_s}, nowhere);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(json(run.out).value(u"error"_s).toString().startsWith(u"missing.tvf: "_s))
        << run.out.toStdString();
    EXPECT_EQ(run.err, QString());
}

// Whatever stands in the server's place, the person learns what answered.
TEST(CliUsage, AnErrorPageInsteadOfTheServerIsNamed) {
    QTemporaryDir root;
    const User user(u"gina"_s, root.path());
    ScriptedHttpsServer proxy;
    proxy.answer("<html><body><h1>502 Bad Gateway</h1></body></html>", "text/html", 502);
    const QString badGateway = u"nivogx-cli: The account server answered 502 Bad Gateway.\n"_s;

    CliRun run = user.cli({u"signin"_s, u"gina"_s, u"--password-stdin"_s}, proxy.baseUrl(),
                          "secret\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, u"nivogx-cli: Sign in Failed\n"_s + badGateway);
    run = user.cli({u"signup"_s, u"gina"_s, u"--password-stdin"_s}, proxy.baseUrl(),
                   kPassword.toUtf8() + '\n');
    EXPECT_EQ(run.exitCode, 1) << "no account was made";
    EXPECT_TRUE(run.err.endsWith(badGateway)) << run.err.toStdString();
}

}  // namespace
