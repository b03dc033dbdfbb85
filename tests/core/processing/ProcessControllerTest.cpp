// One file through ProcessController with real keys, real files and the real activity log: the
// outcome texts, the log line of every run, no output left by a failure and nothing taken from
// others, the two reports of a cancelled run that really stops, and the progress it reports. Senders named from the contact database are
// checked with a whole batch in FileListModelTest.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QScopeGuard>
#include <QSignalSpy>
#include <unistd.h>

#include "ProcessingTestKit.h"
#include "TestFiles.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"
#include "processing/ProcessController.h"
#include "session/NivoGXUtil.h"

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
        QString sender;
        const QString plainPath = kit.path(u"check.bin"_s);
        EXPECT_EQ(NivoCryptoOperation::decryptData(fileBytes(protectedPath), profile,
                                                   TestPki::kPassword, plainPath, sender),
                  u""_s);
        const QByteArray content = fileBytes(plainPath);
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

    ProcessController controller(NivoGXUtil::runEnvironment());
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

    // A batch reads the name once and hands it to every controller; the log must carry it.
    ProcessController batch(NivoGXUtil::runEnvironment());
    batch.setUserNivoId(u"alice.batch"_s);
    EXPECT_EQ(run(batch, input, true, {bob}), u""_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents().last(),
              u"Encrypt | %1 | bob,alice.batch | Success"_s.arg(input));
}

// That a batch opens the key file once is StreamingCmsTest's; here signing out forgets it.
TEST_F(ProcessControllerTest, SignOutForgetsTheOpenedKeyFile) {
    QDir().mkpath(kit.path(u"out"_s));
    ProcessController first(NivoGXUtil::runEnvironment());
    EXPECT_EQ(run(first, kit.writeFile(u"in/first"_s, "batch"), true), u""_s);
    NivoGXUtil::logout();
    const quint64 before = comTruvexCrypto_Pkcs12Loader::keyDerivations();
    ProcessController next(NivoGXUtil::runEnvironment());
    EXPECT_EQ(run(next, kit.writeFile(u"in/next"_s, "batch"), true), u""_s);
    EXPECT_EQ(comTruvexCrypto_Pkcs12Loader::keyDerivations(), before + 1);
}

TEST_F(ProcessControllerTest, FailuresBecomeTheOutcomeAndLeaveNoOutput) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString secret = kit.writeFile(u"in/secret.txt"_s, "secret");

    ProcessController wrongPassword(NivoGXUtil::runEnvironment());
    EXPECT_FALSE(run(wrongPassword, secret, true, {}, u"wrong"_s).isEmpty());

    ProcessController noFolder(NivoGXUtil::runEnvironment());
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

TEST_F(ProcessControllerTest, AFileThatAppearsAtTheOutputNameIsNeverTouched) {
    QDir().mkpath(kit.path(u"out"_s));
    const auto appearsWhileRunning = [this](const QString& input, bool toEncrypt,
                                            const QString& taken) {
        ProcessController controller(NivoGXUtil::runEnvironment());
        QSignalSpy completed(&controller, &ProcessController::processingCompleted);
        controller.processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {},
                               kit.path(u"out"_s), toEncrypt);
        // Someone saves a file under the chosen name while the run works.
        EXPECT_EQ(controller.outputPath(), kit.path(taken));
        kit.writeFile(taken, "the user's own");
        EXPECT_TRUE(completed.wait(kDeadlockGuardMs));
        EXPECT_EQ(fileBytes(kit.path(taken)), "the user's own");
        return std::pair{completed.value(0).value(0).toString(), controller.outputPath()};
    };
    // A failed run leaves it alone.
    EXPECT_NE(appearsWhileRunning(kit.writeFile(u"in/junk.txt.tvf"_s, "not a message"), false,
                                  u"out/junk.txt"_s)
                  .first,
              u""_s);
    EXPECT_EQ(kit.files(u"out"_s), QStringList{u"junk.txt"_s});

    // A successful one takes the next free name and says so.
    const QByteArray content(8 << 20, 'r');
    const auto [outcome, placed] =
        appearsWhileRunning(kit.writeFile(u"in/report.pdf"_s, content), true,
                            u"out/report.pdf.tvf"_s);
    EXPECT_EQ(outcome, u""_s);
    EXPECT_EQ(placed, kit.path(u"out/report(1).pdf.tvf"_s));
    EXPECT_EQ(decryptAs(ProcessingTestKit::aliceProfile(), placed), content);
    EXPECT_EQ(kit.files(u"out"_s),
              (QStringList{u"junk.txt"_s, u"report(1).pdf.tvf"_s, u"report.pdf.tvf"_s}));
}

TEST_F(ProcessControllerTest, ABrokenFileNeverTakesTheOutputOfAValidOneOfTheSameName) {
    // Both are called r.bin.tvf and go to one folder at once, so both choose out/r.bin. The
    // broken one is large and fails only near its end, after the valid one is in place.
    QDir().mkpath(kit.path(u"out"_s));
    const QString valid = kit.protectedFile(u"a/r.bin.tvf"_s, "the real content",
                                            ProcessingTestKit::bobProfile());
    QByteArray damaged = fileBytes(kit.protectedFile(
        u"b/r.bin.tvf"_s, QByteArray(4 << 20, 'b'), ProcessingTestKit::bobProfile()));
    damaged[damaged.size() - 300] ^= 1;
    const QString broken = kit.writeFile(u"b/r.bin.tvf"_s, damaged);

    for (int round = 0; round < 3; ++round) {
        for (const bool validFirst : {true, false}) {
            SCOPED_TRACE(testing::Message() << "round " << round << ", valid first " << validFirst);
            ProcessController first(NivoGXUtil::runEnvironment());
            ProcessController second(NivoGXUtil::runEnvironment());
            QSignalSpy firstDone(&first, &ProcessController::processingCompleted);
            QSignalSpy secondDone(&second, &ProcessController::processingCompleted);
            first.processFile(validFirst ? valid : broken, ProcessingTestKit::aliceProfile(),
                              TestPki::kPassword, {}, kit.path(u"out"_s), false);
            second.processFile(validFirst ? broken : valid, ProcessingTestKit::aliceProfile(),
                               TestPki::kPassword, {}, kit.path(u"out"_s), false);
            EXPECT_EQ(first.outputPath(), second.outputPath());
            ASSERT_TRUE(firstDone.size() > 0 || firstDone.wait(kDeadlockGuardMs));
            ASSERT_TRUE(secondDone.size() > 0 || secondDone.wait(kDeadlockGuardMs));
            EXPECT_EQ(kit.files(u"out"_s), QStringList{u"r.bin"_s});
            EXPECT_EQ(fileBytes(kit.path(u"out/r.bin"_s)), "the real content");
            QFile::remove(kit.path(u"out/r.bin"_s));
        }
    }
}

TEST_F(ProcessControllerTest, AFullDiskIsNamedAndLeavesNothing) {
    const QString full = kit.path(u"full"_s);
    QDir().mkpath(full);
    // A real full disk: a file system of 1 MiB, which only root may mount.
    if (::geteuid() != 0 ||
        QProcess::execute(u"mount"_s, {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=1m"_s,
                                       u"nivogx-full"_s, full}) != 0) {
        GTEST_SKIP() << "cannot mount a small file system here";
    }
    const auto unmount = qScopeGuard([&full] { QProcess::execute(u"umount"_s, {full}); });
    const QString input = kit.writeFile(u"in/big.bin"_s, QByteArray(3 << 20, 'f'));
    ProcessController controller(NivoGXUtil::runEnvironment());
    EXPECT_EQ(run(controller, input, true, {}, TestPki::kPassword, full),
              u"Not enough space to write %1."_s.arg(full));
    EXPECT_EQ(QDir(full).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{});
}

TEST_F(ProcessControllerTest, AMissingInputIsReportedLaterWithoutALogLine) {
    ProcessController controller(NivoGXUtil::runEnvironment());
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

TEST_F(ProcessControllerTest, CancelReportsAtOnceAndStopsTheWorkWhichThenReportsAFailure) {
    QDir().mkpath(kit.path(u"out"_s));
    // Several GiB that take no room: the work would run for many seconds if not stopped.
    constexpr qint64 kHuge = qint64{3} << 30;
    const QString input = kit.writeFile(u"in/huge.bin"_s, {});
    ASSERT_TRUE(QFile::resize(input, kHuge));
    const Contact bob = ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob);

    ProcessController controller(NivoGXUtil::runEnvironment());
    QSignalSpy completed(&controller, &ProcessController::processingCompleted);
    QSignalSpy progress(&controller, &ProcessController::progress);
    controller.processFile(input, ProcessingTestKit::aliceProfile(), TestPki::kPassword, {bob},
                           kit.path(u"out"_s), true);
    const auto lastDone = [&progress] {
        return progress.isEmpty() ? 0 : progress.last().first().toLongLong();
    };
    while (lastDone() == 0) {
        ASSERT_TRUE(progress.wait(kDeadlockGuardMs));
    }
    controller.cancel();
    ASSERT_EQ(completed.size(), 1);
    EXPECT_EQ(completed.first().first().toString(), u"Encryption cancelled"_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              QStringList{u"Encrypt | %1 | bob,alice | Cancelled"_s.arg(input)});
    controller.cancel();  // a second press changes nothing
    EXPECT_EQ(completed.size(), 1);

    ASSERT_TRUE(completed.wait(kDeadlockGuardMs));
    EXPECT_NE(completed.at(1).first().toString(), u""_s);
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Encrypt | %1 | bob,alice | Cancelled"_s.arg(input),
                           u"Encrypt | %1 | bob,alice | Failed"_s.arg(input)}));
    // It stopped where it was, far from the end, and left nothing, not even a temporary file.
    EXPECT_LT(lastDone(), kHuge / 4);
    EXPECT_EQ(kit.files(u"out"_s), QStringList{});
}

TEST_F(ProcessControllerTest, ACancelledDecryptionLogsNobodyAndItsWorkOutlivesTheController) {
    QDir().mkpath(kit.path(u"out"_s));
    const QString input = kit.writeFile(u"in/junk.tvf"_s, "not a message");
    auto* controller = new ProcessController(NivoGXUtil::runEnvironment());
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
        ProcessController controller(NivoGXUtil::runEnvironment());
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
