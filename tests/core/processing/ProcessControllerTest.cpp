// One file through ProcessController with real keys, real files and the real activity log: the
// outcome texts, the log line of every run, no output left by a failure, the two reports of a
// cancelled run, and the progress it reports. Senders named from the contact database are
// checked with a whole batch in FileListModelTest.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include "ProcessingTestKit.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/comTruvexCrypto_Pkcs12Loader.h"
#include "processing/ProcessController.h"
#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kDeadlockGuardMs = 60000;

class ProcessControllerTest : public ::testing::Test {
protected:
    // Runs one file to its first outcome.
    QString run(ProcessController& controller, const QString& input, bool toEncrypt,
                const QList<Contact>& recipients = {}, const QString& password = TestPki::kPassword,
                QString outputFolder = {}) {
        if (outputFolder.isNull()) {
            outputFolder = kit.path(u"out"_s);
        }
        QSignalSpy completed(&controller, &ProcessController::processingCompleted);
        controller.processFile(input, ProcessingTestKit::aliceProfile(), password, recipients,
                               outputFolder, toEncrypt);
        EXPECT_TRUE(completed.wait(kDeadlockGuardMs));
        return completed.isEmpty() ? u"<no outcome>"_s : completed.first().first().toString();
    }

    QByteArray decryptAs(const NivoProfile& profile, const QString& protectedPath) {
        QFile file(protectedPath);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        QString sender;
        const QString plainPath = kit.path(u"check.bin"_s);
        EXPECT_EQ(NivoCryptoOperation::decryptData(file.readAll(), profile, TestPki::kPassword,
                                                   plainPath, sender),
                  u""_s);
        QFile plain(plainPath);
        EXPECT_TRUE(plain.open(QIODevice::ReadOnly));
        const QByteArray content = plain.readAll();
        QFile::remove(plainPath);
        return content;
    }

    ProcessingTestKit kit;
};

TEST_F(ProcessControllerTest, EncryptsForTheRecipientsAndTheUserAndLogsThemAll) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/report.pdf"_s, "quarterly numbers");
    const Contact bob = ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob);
    const Contact carol = ProcessingTestKit::contact(u"carol"_s, ProcessingTestKit::people().carol);

    ProcessController controller;
    QSignalSpy status(&controller, &ProcessController::statusChanged);
    EXPECT_EQ(run(controller, input, true, {bob, carol}), u""_s);

    ASSERT_EQ(status.size(), 1);
    EXPECT_EQ(status.first(),
              (QVariantList{u"Encrypting %1 ..."_s.arg(input), u"Encrypting ..."_s}));
    EXPECT_EQ(controller.outputPath(), kit.path(u"out/report.pdf.tvf"_s));
    EXPECT_EQ(decryptAs(ProcessingTestKit::bobProfile(), controller.outputPath()),
              "quarterly numbers");
    EXPECT_EQ(decryptAs(ProcessingTestKit::aliceProfile(), controller.outputPath()),
              "quarterly numbers");
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              QStringList{u"Encrypt | %1 | bob,carol,alice | Success"_s.arg(input)});
}

TEST_F(ProcessControllerTest, AUserNameGivenByTheCallerIsTheOneLogged) {
    // A batch reads the name once and hands it to every controller; the log must carry it.
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/notes.txt"_s, "minutes");
    const Contact bob = ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob);

    ProcessController controller;
    controller.setUserNivoId(u"alice.batch"_s);
    EXPECT_EQ(run(controller, input, true, {bob}), u""_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              QStringList{u"Encrypt | %1 | bob,alice.batch | Success"_s.arg(input)});
}

TEST_F(ProcessControllerTest, ABatchOpensTheKeyFileOnceAndSignOutForgetsIt) {
    QDir().mkpath(kit.path(u"out"_s));
    const auto encrypt = [this](const QString& name) {
        ProcessController controller;
        EXPECT_EQ(run(controller, kit.writeFile(u"in/"_s + name, "batch"), true), u""_s);
    };
    encrypt(u"first"_s);
    const quint64 opened = comTruvexCrypto_Pkcs12Loader::keyDerivations();
    encrypt(u"second"_s);
    encrypt(u"third"_s);
    EXPECT_EQ(comTruvexCrypto_Pkcs12Loader::keyDerivations(), opened);

    // A wrong password is not let through by what was kept.
    ProcessController wrong;
    EXPECT_NE(run(wrong, kit.writeFile(u"in/wrong"_s, "batch"), true, {}, u"not it"_s), u""_s);

    NivoGXUtil::logout();
    const quint64 beforeNext = comTruvexCrypto_Pkcs12Loader::keyDerivations();
    encrypt(u"after sign-out"_s);
    EXPECT_EQ(comTruvexCrypto_Pkcs12Loader::keyDerivations(), beforeNext + 1);
}

TEST_F(ProcessControllerTest, FailuresBecomeTheOutcomeAndLeaveNoOutput) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString secret = kit.writeFile(u"in/secret.txt"_s, "secret");

    ProcessController wrongPassword;
    EXPECT_FALSE(run(wrongPassword, secret, true, {}, u"wrong"_s).isEmpty());

    ProcessController noFolder;
    const QString folderOutcome =
        run(noFolder, secret, true, {}, TestPki::kPassword, kit.path(u"missing/folder"_s));
    EXPECT_TRUE(folderOutcome.contains(kit.path(u"missing/folder"_s)))
        << folderOutcome.toStdString();

    EXPECT_EQ(kit.files(u"out"_s), QStringList{});
    EXPECT_FALSE(QFileInfo::exists(kit.path(u"missing"_s)));
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Encrypt | %1 | alice | Failed"_s.arg(secret),
                           u"Encrypt | %1 | alice | Failed"_s.arg(secret)}));
}

TEST_F(ProcessControllerTest, AFailedRunRemovesAFileThatAppearedAtItsOutputPath) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/junk.txt.tvf"_s, "not a message");
    ProcessController controller;
    QSignalSpy completed(&controller, &ProcessController::processingCompleted);
    controller.processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {},
                           kit.path(u"out"_s), false);
    // Something writes the chosen name while the run works; a failed run still leaves nothing.
    kit.writeFile(u"out/junk.txt"_s, "stray");
    ASSERT_TRUE(completed.wait(kDeadlockGuardMs));
    EXPECT_EQ(kit.files(u"out"_s), QStringList{});
}

TEST_F(ProcessControllerTest, AMissingInputIsReportedLaterWithoutALogLine) {
    ProcessController controller;
    QSignalSpy completed(&controller, &ProcessController::processingCompleted);
    const QString input = kit.path(u"in/gone.txt"_s);
    controller.processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {},
                           kit.path(u"out"_s), true);
    EXPECT_TRUE(completed.isEmpty());
    ASSERT_TRUE(completed.wait(kDeadlockGuardMs));
    EXPECT_EQ(completed.first().first().toString(), u"%1 does not exists."_s.arg(input));
    EXPECT_FALSE(controller.isRunning());
    EXPECT_EQ(ProcessingTestKit::loggedEvents(), QStringList{});
}

TEST_F(ProcessControllerTest, CancelReportsAtOnceAndTheAbandonedWorkReportsAgain) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/big.bin"_s, QByteArray(256 * 1024, 'x'));
    const Contact bob = ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob);

    ProcessController controller;
    QSignalSpy completed(&controller, &ProcessController::processingCompleted);
    controller.processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {bob},
                           kit.path(u"out"_s), true);
    controller.cancel();
    ASSERT_EQ(completed.size(), 1);
    EXPECT_EQ(completed.first().first().toString(), u"Encryption cancelled"_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              QStringList{u"Encrypt | %1 | bob,alice | Cancelled"_s.arg(input)});
    controller.cancel();  // a second press changes nothing
    EXPECT_EQ(completed.size(), 1);

    ASSERT_TRUE(completed.wait(kDeadlockGuardMs));
    EXPECT_EQ(completed.at(1).first().toString(), u""_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Encrypt | %1 | bob,alice | Cancelled"_s.arg(input),
                           u"Encrypt | %1 | bob,alice | Success"_s.arg(input)}));
    // The work finished after the cancel, so its output stays, as the second line says.
    EXPECT_TRUE(QFileInfo::exists(controller.outputPath()));
}

TEST_F(ProcessControllerTest, ACancelledDecryptionLogsNobodyAndItsWorkOutlivesTheController) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/junk.tvf"_s, "not a message");
    auto* controller = new ProcessController;
    QSignalSpy completed(controller, &ProcessController::processingCompleted);
    controller->processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {},
                            kit.path(u"out"_s), false);
    controller->cancel();
    ASSERT_EQ(completed.size(), 1);
    EXPECT_EQ(completed.first().first().toString(), u"Decryption cancelled"_s);
    // A window closes after the cancel; the work still finishes and logs.
    delete controller;
    ProcessingTestKit::drainBackgroundWork();
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Decrypt | %1 |  | Cancelled"_s.arg(input),
                           u"Decrypt | %1 |  | Failed"_s.arg(input)}));
    EXPECT_EQ(kit.files(u"out"_s), QStringList{});
}

TEST_F(ProcessControllerTest, ProgressCountsTheInputConsumedInBothDirections) {
    QDir().mkpath(kit.path(u"out"_s));
    const qint64 size = 3 * 1024 * 1024 + 17;
    const QString input = kit.writeFile(u"in/large.bin"_s, QByteArray(size, 'p'));
    const auto reportsOf = [this](const QString& path, bool toEncrypt, const QString& folder) {
        ProcessController controller;
        QSignalSpy progress(&controller, &ProcessController::progress);
        EXPECT_EQ(run(controller, path, toEncrypt, {}, TestPki::kPassword, folder), u""_s);
        QList<std::pair<qint64, qint64>> reports;
        for (const QVariantList& report : progress) {
            reports.append({report.at(0).toLongLong(), report.at(1).toLongLong()});
        }
        return reports;
    };
    const auto expectSteadyUpTo = [](const QList<std::pair<qint64, qint64>>& reports,
                                     qint64 total) {
        ASSERT_GE(reports.size(), 3);
        // Indeterminate until the input is open, then counting up to the whole input.
        EXPECT_EQ(reports.first(), (std::pair<qint64, qint64>{0, 0}));
        EXPECT_EQ(reports.last(), (std::pair<qint64, qint64>{total, total}));
        for (qsizetype i = 2; i < reports.size(); ++i) {
            EXPECT_EQ(reports.at(i).second, total);
            EXPECT_LE(reports.at(i - 1).first, reports.at(i).first);
        }
    };
    expectSteadyUpTo(reportsOf(input, true, kit.path(u"out"_s)), size);

    const QString protectedPath = kit.path(u"out/large.bin.tvf"_s);
    QDir().mkpath(kit.path(u"back"_s));
    expectSteadyUpTo(reportsOf(protectedPath, false, kit.path(u"back"_s)),
                     QFileInfo(protectedPath).size());
}

}  // namespace
