// The runner's own rules, which the file list (one file at a time) and the command-line tool
// (whose concurrency cannot be seen from outside) do not show: how much runs at once, that files
// of one name running together get names of their own, the order of the results, and a cancel.
#include <gtest/gtest.h>

#include <QDir>
#include <QSignalSpy>
#include <memory>

#include "ProcessingTestKit.h"
#include "processing/BatchRunner.h"
#include "processing/ProcessController.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int kDeadlockGuardMs = 60000;

class BatchRunnerTest : public ::testing::Test {
protected:
    void TearDown() override {
        runner.reset();
        ProcessingTestKit::drainBackgroundWork();
    }

    BatchRunner::Item item(const QString& relative, int weight = 1) const {
        return BatchRunner::Item{
            kit.writeFile(relative, relative.toUtf8()), kit.path(u"out"_s), {}, true,
            ProcessingTestKit::aliceProfile(),          TestPki::kPassword, {}, weight};
    }
    void waitForIdle() {
        QSignalSpy idle(runner.get(), &BatchRunner::idle);
        while (runner->isBusy()) {
            ASSERT_TRUE(idle.wait(kDeadlockGuardMs));
        }
    }

    ProcessingTestKit kit;
    std::unique_ptr<BatchRunner> runner =
        std::make_unique<BatchRunner>(NivoGXUtil::runEnvironment());
};

TEST_F(BatchRunnerTest, RunsWithinItsCapacityAHeavyItemAloneAndReportsInOrder) {
    QDir().mkpath(kit.path(u"out"_s));
    runner->setCapacity(2);
    QList<qsizetype> underWay;
    QList<QList<qsizetype>> startedBeside;
    QList<qsizetype> inOrder;
    QObject::connect(runner.get(), &BatchRunner::itemStarting, runner.get(),
                     [&](qsizetype index, ProcessController*) {
                         startedBeside.append(underWay);
                         underWay.append(index);
                     });
    QObject::connect(runner.get(), &BatchRunner::itemFinished, runner.get(),
                     [&](qsizetype index) { underWay.removeOne(index); });
    QObject::connect(runner.get(), &BatchRunner::finishedInOrder, runner.get(),
                     [&](qsizetype index) { inOrder.append(index); });

    // Five files of one name: each run picks its name while the others' outputs do not exist.
    for (const QString& folder : {u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s}) {
        runner->add(item(folder + u"/same.txt"_s, folder == u"c"_s ? 2 : 1));
    }
    waitForIdle();

    ASSERT_EQ(startedBeside.size(), 5);
    EXPECT_EQ(startedBeside[1], QList<qsizetype>{0});
    EXPECT_TRUE(startedBeside[2].isEmpty()) << "the heavy one runs alone";
    EXPECT_TRUE(startedBeside[3].isEmpty()) << "nothing joins the heavy one";
    EXPECT_EQ(inOrder, (QList<qsizetype>{0, 1, 2, 3, 4}));
    QStringList outputs;
    for (qsizetype i = 0; i < 5; ++i) {
        EXPECT_EQ(runner->result(i).outcome, QString());
        outputs.append(runner->result(i).outputPath);
    }
    outputs.removeDuplicates();
    EXPECT_EQ(outputs.size(), 5);
    EXPECT_EQ(kit.files(u"out"_s).size(), 5);
}

TEST_F(BatchRunnerTest, ACancelStopsWhatRunsAndDropsWhatWaits) {
    QDir().mkpath(kit.path(u"out"_s));
    QSignalSpy started(runner.get(), &BatchRunner::itemStarting);
    QSignalSpy idle(runner.get(), &BatchRunner::idle);
    for (const QString& name : {u"a.txt"_s, u"b.txt"_s, u"c.txt"_s}) {
        runner->add(item(name));
    }
    ASSERT_EQ(started.size(), 1);
    runner->cancel();

    EXPECT_FALSE(runner->isBusy());
    EXPECT_EQ(idle.size(), 1);
    EXPECT_EQ(runner->result(0).outcome, ProcessController::kEncryptionCancelled);
    EXPECT_FALSE(runner->result(1).finished);
    ProcessingTestKit::drainBackgroundWork();
    EXPECT_EQ(started.size(), 1);
    EXPECT_TRUE(kit.files(u"out"_s).isEmpty());
}

}  // namespace
