// The file queue with real runs: what is listed and in which order, which rows a button marks,
// how a batch walks the list (vanished files, failures, successes leaving the list, cancels,
// files joining a run, deletions), and one log line per processed file.
#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSignalSpy>
#include <algorithm>
#include <memory>
#include <random>

#include "ProcessingTestKit.h"
#include "crypto/NivoCryptoOperation.h"
#include "processing/BatchRunner.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;
using Request = FileListModel::Request;

namespace {

constexpr int kDeadlockGuardMs = 60000;

class FileListModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        QDir().mkpath(kit.path(u"out"_s));
        NivoGXUtil::saveSettings({}, {}, {}, kit.path(u"out"_s), kit.path(u"out"_s));
        model = std::make_unique<FileListModel>(NivoGXUtil::runEnvironment());
        // Checks every change the views see (inserts, removals, re-sorting) for consistency.
        tester = std::make_unique<QAbstractItemModelTester>(
            model.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    }
    void TearDown() override {
        tester.reset();
        model.reset();
        ProcessingTestKit::drainBackgroundWork();
    }

    QStringList paths() const {
        QStringList result;
        for (const FileDetails& e : model->fileList()) {
            result.append(e.filePath);
        }
        return result;
    }
    QStringList statuses() const {
        QStringList result;
        for (const FileDetails& e : model->fileList()) {
            result.append(e.status);
        }
        return result;
    }
    void waitForRunEnd() {
        QSignalSpy changed(model.get(), &FileListModel::processingChanged);
        while (model->isProcessing()) {
            ASSERT_TRUE(changed.wait(kDeadlockGuardMs));
        }
    }

    ProcessingTestKit kit;
    std::unique_ptr<FileListModel> model;
    std::unique_ptr<QAbstractItemModelTester> tester;
};

TEST_F(FileListModelTest, ListsEachPathOnceSortedByNameThenPath) {
    EXPECT_EQ(model->addFiles({u"/b/Zeta.txt"_s, u"/a/beta.txt"_s, u"/c/Alpha.txt"_s,
                               u"/A/beta.txt"_s, u"/a/beta.txt"_s}),
              4);
    // A selection stays on its file when new files sort in front of it.
    const QPersistentModelIndex zeta = model->index(3, FileListModel::FileColumn);
    ASSERT_EQ(zeta.data().toString(), u"/b/Zeta.txt"_s);
    EXPECT_EQ(model->addFiles({u"/a/beta.txt"_s, u"/a/Beta.txt"_s}), 1);
    EXPECT_EQ(zeta.data().toString(), u"/b/Zeta.txt"_s);
    EXPECT_EQ(paths(), (QStringList{u"/c/Alpha.txt"_s, u"/a/beta.txt"_s, u"/A/beta.txt"_s,
                                    u"/a/Beta.txt"_s, u"/b/Zeta.txt"_s}));
    EXPECT_EQ(statuses(), QStringList(5, QString()));

    // Only existing files can be dropped; folders and missing paths are ignored.
    const QString file = kit.writeFile(u"in/dropped.txt"_s, "d");
    EXPECT_EQ(model->addDroppedFiles({file, kit.path(u"in"_s), kit.path(u"in/none.txt"_s)}), 1);
    EXPECT_TRUE(paths().contains(file));
}

TEST_F(FileListModelTest, ShowsFileAndStatusColumns) {
    model->addFiles({u"/x/a.txt"_s});
    model->setEncryptStatus();
    EXPECT_EQ(model->columnCount(), 2);
    EXPECT_EQ(model->headerData(0, Qt::Horizontal).toString(), u"File"_s);
    EXPECT_EQ(model->headerData(1, Qt::Horizontal).toString(), u"Status"_s);
    EXPECT_EQ(model->data(model->index(0, 0)).toString(), u"/x/a.txt"_s);
    EXPECT_EQ(model->data(model->index(0, 1)).toString(), u"Pending encryption"_s);
    EXPECT_FALSE(model->data(model->index(1, 0)).isValid());
}

TEST_F(FileListModelTest, ButtonsAnswerFromTheRowsStatuses) {
    EXPECT_EQ(model->encryptRequested(), Request::NoFiles);
    EXPECT_EQ(model->decryptRequested(), Request::NoFiles);

    model->addFiles({u"/x/a.txt"_s, u"/x/b.TVF"_s, u"/x/c.tvf"_s});
    EXPECT_EQ(model->getEncryptStatusNumbers(), 3);
    EXPECT_EQ(model->getDecryptStatusNumbers(), 1);  // the extension's letter case counts
    EXPECT_EQ(model->decryptRequested(), Request::ChooseOutputFolder);
    EXPECT_EQ(model->encryptRequested(), Request::ChooseRecipients);

    model->setDecryptStatus();
    EXPECT_EQ(statuses(), (QStringList{u""_s, u""_s, u"Pending decryption"_s}));
    EXPECT_EQ(model->getEncryptStatusNumbers(), 2);
    EXPECT_EQ(model->getDecryptStatusNumbers(), 1);
    model->setEncryptStatus();
    EXPECT_EQ(statuses(), (QStringList{u"Pending encryption"_s, u"Pending encryption"_s,
                                       u"Pending decryption"_s}));
    EXPECT_EQ(model->getEncryptStatusNumbers(), 2);
    EXPECT_EQ(model->getDecryptStatusNumbers(), 1);

    FileListModel finished(NivoGXUtil::runEnvironment());
    finished.addFiles({u"/x/a.txt"_s});
    finished.setEncryptStatus();
    finished.handleProcessingComplete(u"Some failure"_s);  // as a run leaves a failed file
    EXPECT_EQ(finished.encryptRequested(), Request::AskToClearList);
    EXPECT_EQ(finished.decryptRequested(), Request::AskToClearList);
    finished.clear();
    EXPECT_EQ(finished.rowCount(), 0);
}

// One decryption batch end to end: a vanished file, a failure, files of other types that stay
// unmarked, successes that leave the list, and one log line for each file that ran.
TEST_F(FileListModelTest, ADecryptionBatchWalksTheWholeList) {
    NivoGXUtil::addContact(ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob));
    const QString fromBob =
        kit.protectedFile(u"in/a-from-bob.txt.tvf"_s, "from bob", ProcessingTestKit::bobProfile());
    const QString mine =
        kit.protectedFile(u"in/b-mine.pdf.tvf"_s, "mine", ProcessingTestKit::aliceProfile());
    const QString broken = kit.writeFile(u"in/c-broken.tvf"_s, "not a message");
    const QString other = kit.writeFile(u"in/d-notes.txt"_s, "plain");
    const QString vanishing =
        kit.protectedFile(u"in/e-gone.txt.tvf"_s, "gone", ProcessingTestKit::bobProfile());
    model->addFiles({vanishing, other, broken, mine, fromBob});

    QList<int> startedRows;
    QObject::connect(model.get(), &FileListModel::processStarting, model.get(),
                     [&startedRows](ProcessController*, int row) { startedRows.append(row); });

    ASSERT_EQ(model->decryptRequested(), Request::ChooseOutputFolder);
    model->startDecryption();
    EXPECT_EQ(statuses(), (QStringList{u"Decrypting"_s, u"Pending decryption"_s,
                                       u"Pending decryption"_s, u""_s, u"Pending decryption"_s}));
    ASSERT_TRUE(QFile::remove(vanishing));
    waitForRunEnd();

    EXPECT_EQ(paths(), (QStringList{broken, other, vanishing}));
    EXPECT_EQ(statuses(), (QStringList{NivoCryptoOperation::kNotEncryptedOrNotSupported, u""_s,
                                       u"File no longer exists."_s}));
    EXPECT_EQ(startedRows, (QList<int>{0, 0, 0}));
    EXPECT_EQ(kit.files(u"out"_s), (QStringList{u"a-from-bob.txt"_s, u"b-mine.pdf"_s}));
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Decrypt | %1 | bob | Success"_s.arg(fromBob),
                           u"Decrypt | %1 | alice | Success"_s.arg(mine),
                           u"Decrypt | %1 |  | Failed"_s.arg(broken)}));

    // A folder where every file failed is not offered again: the one before comes back.
    const QString again =
        kit.protectedFile(u"in/f-again.txt.tvf"_s, "again", ProcessingTestKit::bobProfile());
    model->addFiles({again});
    ASSERT_EQ(model->decryptRequested(), Request::ChooseOutputFolder);
    const QString missing = kit.path(u"missing"_s);
    NivoGXUtil::saveSettings({}, {}, {}, {}, missing);
    model->startDecryption();
    waitForRunEnd();
    EXPECT_EQ(statuses().last(), u"The folder %1 does not exist."_s.arg(missing));
    EXPECT_EQ(NivoGXUtil::getLastOutputDecryptFolder(), kit.path(u"out"_s));
}

TEST_F(FileListModelTest, AnEncryptionRunTakesInFilesAddedWhileItRuns) {
    const QString first = kit.writeFile(u"in/b.txt"_s, "b");
    const QString second = kit.writeFile(u"in/c.txt"_s, "c");
    const QString late = kit.writeFile(u"in/a.txt"_s, "a");
    model->addFiles({second, first});
    ASSERT_EQ(model->encryptRequested(), Request::ChooseRecipients);
    model->handleRecipientSelectionComplete(
        {ProcessingTestKit::contact(u"bob"_s, ProcessingTestKit::people().bob)});
    EXPECT_TRUE(model->isProcessing());

    // Appended, not sorted in front of the file being processed, and marked by a second press.
    model->addFiles({late});
    EXPECT_EQ(paths(), (QStringList{first, second, late}));
    EXPECT_EQ(model->encryptRequested(), Request::JoinedRun);
    EXPECT_EQ(statuses(),
              (QStringList{u"Encrypting"_s, u"Pending encryption"_s, u"Pending encryption"_s}));
    waitForRunEnd();

    EXPECT_EQ(model->rowCount(), 0);
    EXPECT_EQ(kit.files(u"out"_s), (QStringList{u"a.txt.tvf"_s, u"b.txt.tvf"_s, u"c.txt.tvf"_s}));
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              (QStringList{u"Encrypt | %1 | bob,alice | Success"_s.arg(first),
                           u"Encrypt | %1 | bob,alice | Success"_s.arg(second),
                           u"Encrypt | %1 | bob,alice | Success"_s.arg(late)}));
}

TEST_F(FileListModelTest, DeletingKeepsTheRunOnItsFileAndMarkingSkipsPassedRows) {
    const QString a = kit.writeFile(u"in/a.txt"_s, "a");
    const QString b = kit.writeFile(u"in/b.txt"_s, "b");
    const QString c = kit.writeFile(u"in/c.txt"_s, "c");
    const QString d = kit.protectedFile(u"in/d.txt.tvf"_s, "d", ProcessingTestKit::aliceProfile());
    const QString e = kit.protectedFile(u"in/e.txt.tvf"_s, "e", ProcessingTestKit::aliceProfile());
    model->addFiles({a, b, c, d, e});
    EXPECT_FALSE(model->deleteKeyPressedForTableView(-1));

    model->startDecryption();
    ASSERT_EQ(model->fileIndexCounter(), 3);
    EXPECT_EQ(model->fileList().at(3).status, u"Decrypting"_s);

    // Rows the run has passed are not marked by an Encrypt during the run.
    EXPECT_EQ(model->encryptRequested(), Request::JoinedRun);
    EXPECT_EQ(statuses(),
              (QStringList{u""_s, u""_s, u""_s, u"Decrypting"_s, u"Pending decryption"_s}));

    EXPECT_TRUE(model->deleteKeyPressedForTableView(0));
    EXPECT_EQ(model->fileIndexCounter(), 2);
    EXPECT_FALSE(model->deleteKeyPressedForTableView(2));  // being processed
    EXPECT_TRUE(model->deleteKeyPressedForTableView(3));   // after the run's position
    EXPECT_EQ(model->fileIndexCounter(), 2);
    EXPECT_EQ(paths(), (QStringList{b, c, d}));
    waitForRunEnd();

    EXPECT_EQ(paths(), (QStringList{b, c}));
    EXPECT_EQ(ProcessingTestKit::loggedEvents(),
              QStringList{u"Decrypt | %1 | alice | Success"_s.arg(d)});
}

TEST_F(FileListModelTest, ACancelledFileKeepsItsTextAndTheRunGoesOn) {
    const QString first = kit.writeFile(u"in/a.txt"_s, "a");
    const QString second = kit.writeFile(u"in/b.txt"_s, "b");
    model->addFiles({first, second});
    ASSERT_EQ(model->encryptRequested(), Request::ChooseRecipients);
    model->handleRecipientSelectionComplete({});
    const QPointer<ProcessController> cancelled = model->processController();
    ASSERT_TRUE(cancelled);

    cancelled->cancel();
    EXPECT_EQ(statuses(), (QStringList{u"Encryption cancelled"_s, u"Encrypting"_s}));
    // The abandoned work reports as well; by then the run is on the next file, which stays.
    if (cancelled) {
        Q_EMIT cancelled->processingCompleted(u""_s);
    }
    EXPECT_EQ(statuses(), (QStringList{u"Encryption cancelled"_s, u"Encrypting"_s}));
    waitForRunEnd();
    ProcessingTestKit::drainBackgroundWork();

    EXPECT_EQ(paths(), QStringList{first});
    EXPECT_EQ(statuses(), QStringList{u"Encryption cancelled"_s});
    QStringList events = ProcessingTestKit::loggedEvents();
    ASSERT_EQ(events.size(), 3);
    // The cancelled file's work stops and the next file runs beside it; their lines may
    // interleave.
    EXPECT_EQ(events.takeFirst(), u"Encrypt | %1 | alice | Cancelled"_s.arg(first));
    events.sort();
    EXPECT_EQ(events, (QStringList{u"Encrypt | %1 | alice | Failed"_s.arg(first),
                                   u"Encrypt | %1 | alice | Success"_s.arg(second)}));
    EXPECT_EQ(kit.files(u"out"_s), QStringList{u"b.txt.tvf"_s});
}

// Paths are listed once each, letter case counting, however the list got where it is: adding
// with repeats, deleting rows, a run's success taking a row away, emptying the list; a path
// gone from the list can be added again. The order is the plain stable sort by name, then path.
TEST_F(FileListModelTest, EachPathIsListedOnceThroughAddingRemovingAndAddingAgain) {
    QStringList pool;
    for (int i = 0; i < 60; ++i) {
        const QString name = u"File %1.txt"_s.arg(i % 20);
        pool << u"/in/%1/%2"_s.arg(i % 3).arg(name) << u"/IN/%1/%2"_s.arg(i % 3).arg(name.toLower());
    }
    std::mt19937 random(7);
    const auto pickSome = [&](int count) {
        QStringList some;
        for (int i = 0; i < count; ++i) {
            some << pool.at(static_cast<qsizetype>(random() % pool.size()));
        }
        return some;
    };
    // What the list should hold, kept the plain way.
    QStringList expected;
    const auto addExpected = [&expected](const QStringList& added) {
        int count = 0;
        for (const QString& path : added) {
            if (!expected.contains(path)) {
                expected << path;
                ++count;
            }
        }
        std::stable_sort(expected.begin(), expected.end(), [](const QString& a, const QString& b) {
            const int byName = FileDetails{a, {}, {}}.getFilename().compare(
                FileDetails{b, {}, {}}.getFilename(), Qt::CaseInsensitive);
            return byName != 0 ? byName < 0 : a.compare(b, Qt::CaseInsensitive) < 0;
        });
        return count;
    };
    const auto addBoth = [&](const QStringList& added) {
        const int count = addExpected(added);
        ASSERT_EQ(model->addFiles(added), count);
        ASSERT_EQ(paths(), expected);
    };

    for (int round = 0; round < 6; ++round) {
        addBoth(pickSome(25));
        for (int i = 0; i < 8 && !expected.isEmpty(); ++i) {
            const int row = static_cast<int>(random() % expected.size());
            ASSERT_TRUE(model->deleteKeyPressedForTableView(row));
            expected.removeAt(row);
        }
        ASSERT_EQ(paths(), expected);
    }
    addBoth(pool);
    addBoth(pool);

    model->clear();
    expected.clear();
    addBoth(pool.mid(0, 30));

    // A run that ends a file well takes its row away; the path may come back later. (The other
    // paths do not exist, so the run marks them and stops.)
    const QString done = expected.constFirst();
    model->handleProcessingComplete(QString());
    expected.removeFirst();
    ASSERT_EQ(paths(), expected);
    EXPECT_EQ(model->addFiles(pool.mid(0, 30)), 1);
    EXPECT_TRUE(paths().contains(done));
}

// What a folder given to Add Folder or -R yields, and the private folders its outputs go to.
TEST_F(FileListModelTest, AFolderGivesItsFilesAtAnyDepthButNotHiddenOnesOrLinks) {
    for (const QString& name :
         {u"photos/a.jpg"_s, u"photos/2024/b.jpg"_s, u"photos/2024/june/c.bin"_s,
          u"photos/.hidden"_s, u"photos/.cache/d.jpg"_s}) {
        kit.writeFile(name, name.toUtf8());
    }
    const QString photos = kit.path(u"photos"_s);
    ASSERT_TRUE(QFile::link(u"a.jpg"_s, photos + u"/2024/link.jpg"_s));
    ASSERT_TRUE(QFile::link(photos + u"/2024"_s, photos + u"/linked"_s));
    EXPECT_EQ(FileListModel::filesInFolder(photos),
              (QStringList{photos + u"/2024/b.jpg"_s, photos + u"/2024/june/c.bin"_s,
                           photos + u"/a.jpg"_s}));
    EXPECT_EQ(FileListModel::subFolderOf(photos, photos + u"/2024/june/c.bin"_s),
              u"photos/2024/june"_s);
    EXPECT_EQ(FileListModel::subFolderOf(photos + u"/."_s, photos + u"/a.jpg"_s), u"photos"_s);

    const QString out = kit.path(u"out"_s);
    EXPECT_EQ(BatchRunner::makeSubFolders(out, QString()), out);
    EXPECT_EQ(BatchRunner::makeSubFolders(out, u"photos/2024"_s), out + u"/photos/2024"_s);
    for (const QString& level : {out + u"/photos"_s, out + u"/photos/2024"_s}) {
        EXPECT_TRUE(QFileInfo(level).isDir()) << level.toStdString();
        EXPECT_EQ(QFile::permissions(level) &
                      (QFile::ReadGroup | QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther),
                  QFile::Permissions())
            << "made for the user alone: " << level.toStdString();
    }
}

}  // namespace
