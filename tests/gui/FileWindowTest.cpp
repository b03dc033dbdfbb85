// The main window's file list driven like a user would: files added, encrypted for a contact
// found at the real account server, decrypted by that contact; the questions of the buttons, the
// delete keys during a run, and the window of the file being processed. The list's own rules
// (order, statuses, what a run logs) are FileListModelTest's; here the controls must reach them.
#include <QAction>
#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QFileInfo>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMimeData>
#include <QProgressBar>
#include <QStatusBar>
#include <QTableView>
#include <QThreadPool>
#include <QToolBar>
#include <QUrl>

#include "GuiTestKit.h"
#include "TestFiles.h"
#include "contacts/ContactController.h"
#include "filelist/CustomFileTableView.h"
#include "filelist/FileController.h"
#include "filelist/ResultsPanel.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "processing/ProcessWindow.h"
#include "session/NivoGXUtil.h"
#include "session/SignIn.h"

namespace {

using Kind = ScriptedPrompter::Kind;

class FileWindowTest : public GuiTest {
protected:
    void TearDown() override {
        window.reset();
        // A cancelled run's work goes on; it must not write into the next test's folders.
        QThreadPool::globalInstance()->waitForDone();
        QCoreApplication::sendPostedEvents();
        GuiTest::TearDown();
    }

    // An account at the server, signed in the way the sign-in window does it.
    static void signIn(const QString& name) {
        const NivoProfile profile = SignIn::requestProfile(name, QStringLiteral("pw"));
        ASSERT_TRUE(profile.isUsable()) << profile.StatusText.toStdString();
        ASSERT_FALSE(SignIn::keep(name, QStringLiteral("pw"), profile));
    }

    void openWindow() {
        window = std::make_unique<FileController>(hub, prompter);
        window->show();
    }

    // The window of a new account, signed in.
    void openWindowAsAlice() {
        createAccount(QStringLiteral("alice"), QStringLiteral("pw"));
        signIn(QStringLiteral("alice"));
        openWindow();
    }

    [[nodiscard]] QString folder(const QString& name) const {
        const QString path = QDir(sandbox.root()).filePath(name);
        QDir().mkpath(path);
        return path;
    }

    [[nodiscard]] QString writeFile(const QString& name, const QByteArray& content) const {
        const QString path = QDir(folder(QStringLiteral("in"))).filePath(name);
        EXPECT_TRUE(putFile(path, content));
        return path;
    }

    [[nodiscard]] QStringList statuses() const {
        QStringList result;
        for (const FileDetails& entry : window->model().fileList()) {
            result.append(entry.status);
        }
        return result;
    }

    [[nodiscard]] bool idle() const { return !window->model().isProcessing(); }

    void pressKey(Qt::Key key, int row) const {
        CustomFileTableView* table = window->fileTableView();
        table->selectRow(row);
        QTest::keyClick(table, key);
    }

    void drop(const QStringList& paths) const {
        QMimeData data;
        QList<QUrl> urls;
        for (const QString& path : paths) {
            urls.append(QUrl::fromLocalFile(path));
        }
        data.setUrls(urls);
        QWidget* viewport = window->fileTableView()->viewport();
        const QPoint at = viewport->rect().center();
        // The drag enters first, which makes the table the drop's target.
        QDragEnterEvent enter(at, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(viewport, &enter);
        ASSERT_TRUE(enter.isAccepted());
        QDropEvent event(QPointF(at), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(viewport, &event);
    }

    std::unique_ptr<FileController> window;
};

TEST_F(FileWindowTest, FilesEncryptedForAContactOpenForThatContact) {
    createAccount(QStringLiteral("bob"), QStringLiteral("pw"));
    openWindowAsAlice();
    EXPECT_EQ(window->findChild<QLabel*>(QStringLiteral("userToolBarItem"))->text(),
              QStringLiteral("alice"));

    const QString c = writeFile(QStringLiteral("c.txt"), "third");
    const QString a = writeFile(QStringLiteral("a.txt"), "first");
    const QString b = writeFile(QStringLiteral("B.txt"), "second");
    prompter.answerOpen({c, a, b});
    clickToolBar(window.get(), "addFilesAction");
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Select files for encryption/decryption"));
    EXPECT_TRUE(prompter.last().openPanel.multipleSelection);
    EXPECT_FALSE(prompter.last().openPanel.chooseFolders);
    EXPECT_EQ(window->model().rowCount(), 3);
    EXPECT_EQ(NivoGXUtil::getLastInputFolder(), folder(QStringLiteral("in")));

    clickToolBar(window.get(), "encryptAction");
    ContactController* chooser = window->contactController();
    ASSERT_NE(chooser, nullptr);
    EXPECT_TRUE(chooser->isVisible());
    EXPECT_TRUE(chooser->contactList().isEmpty());
    auto* search = chooser->findChild<QLineEdit*>(QStringLiteral("searchField"));
    QTest::keyClicks(search, QStringLiteral(" Bob "));
    QTest::keyClick(search, Qt::Key_Return);
    ASSERT_TRUE(eventually([&] { return !chooser->contactList().isEmpty(); }));
    EXPECT_EQ(chooser->contactList().constFirst().NivoID, QStringLiteral("bob"));
    auto* contacts = chooser->findChild<QTableView*>(QStringLiteral("tableViewAvailable"));
    QTest::mouseClick(contacts->viewport(), Qt::LeftButton, {},
                      contacts->visualRect(contacts->model()->index(0, 0)).center());
    clickButton(chooser, "addButton");
    ASSERT_EQ(chooser->selectedList().size(), 1);

    const QString out = folder(QStringLiteral("out"));
    prompter.clear();
    prompter.answerOpen({out});
    clickButton(chooser, "nextButton");
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Select folder to store encrypted files"));
    EXPECT_TRUE(prompter.last().openPanel.chooseFolders);
    EXPECT_TRUE(prompter.last().openPanel.canCreateFolders);
    EXPECT_EQ(NivoGXUtil::getLastOutputEncryptFolder(), out);
    EXPECT_TRUE(window->contactController() == nullptr ||
                !window->contactController()->isVisible());

    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->model().rowCount(), 0) << statuses().join(u'/').toStdString();
    EXPECT_EQ(QDir(out).entryList(QDir::Files).size(), 3);
    EXPECT_EQ(prompter.count(), 1);

    // The next choice starts from this one.
    window->handleExternalFile(writeFile(QStringLiteral("e.txt"), "fifth"));
    clickToolBar(window.get(), "encryptAction");
    ASSERT_NE(window->contactController(), nullptr);
    ASSERT_EQ(window->contactController()->selectedList().size(), 1);
    EXPECT_EQ(window->contactController()->selectedList().constFirst().NivoID,
              QStringLiteral("bob"));
    // Closing the choice leaves the list as it was.
    clickButton(window->contactController(), "cancelButton");
    EXPECT_EQ(statuses(), QStringList{QString()});
    EXPECT_TRUE(idle());
    EXPECT_EQ(prompter.count(), 1);
    window.reset();

    // Bob opens them in a window of his own.
    signIn(QStringLiteral("bob"));
    openWindow();
    const QStringList protectedFiles{QDir(out).filePath(QStringLiteral("a.txt.tvf")),
                                     QDir(out).filePath(QStringLiteral("B.txt.tvf")),
                                     QDir(out).filePath(QStringLiteral("c.txt.tvf"))};
    hub.postHandleExternalFileArray(protectedFiles);
    const QString plain = folder(QStringLiteral("plain"));
    prompter.clear();
    prompter.answerOpen({plain});
    clickToolBar(window.get(), "decryptAction");
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Select folder to store decrypted file"));
    EXPECT_TRUE(prompter.last().openPanel.chooseFolders);
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->model().rowCount(), 0) << statuses().join(u'/').toStdString();
    EXPECT_EQ(NivoGXUtil::getLastOutputDecryptFolder(), plain);
    EXPECT_EQ(fileBytes(QDir(plain).filePath(QStringLiteral("a.txt"))), QByteArrayLiteral("first"));
    EXPECT_EQ(QDir(plain).entryList(QDir::Files).size(), 3);

    // Each opened file keeps a line under the list: who sent it, checked, and a way to it.
    ResultsPanel* results = window->resultsPanel();
    ASSERT_EQ(results->model().rowCount(), 3);
    for (const RunResults::Result& result : results->model().results()) {
        EXPECT_EQ(result.kind, RunResults::Kind::Opened);
        EXPECT_EQ(RunResults::detailsText(result), QStringLiteral("\u2714 alice (verified)"));
        EXPECT_EQ(QFileInfo(result.outputPath).path(), plain);
    }
    QList<QUrl> shown;
    results->setOpener([&shown](const QUrl& url) { shown.append(url); });
    QWidget* actions =
        results->view()->indexWidget(results->model().index(0, RunResults::ActionsColumn));
    ASSERT_NE(actions, nullptr);
    clickButton(actions, "openButton");
    clickButton(actions, "showInFolderButton");
    EXPECT_EQ(shown, (QList<QUrl>{QUrl::fromLocalFile(results->model().results()[0].outputPath),
                                  QUrl::fromLocalFile(plain)}));
}

TEST_F(FileWindowTest, DuringARunTheFileBeingProcessedStaysAndCancelEndsItsTurn) {
    openWindowAsAlice();
    const QString x = writeFile(QStringLiteral("x.txt"), "x");
    const QString y = writeFile(QStringLiteral("y.txt"), "y");
    const QString z = writeFile(QStringLiteral("z.txt"), "z");
    hub.postHandleExternalFileArray({z, y, x});

    clickToolBar(window.get(), "encryptAction");
    ASSERT_NE(window->contactController(), nullptr);
    prompter.answerAsk(true);
    prompter.answerOpen({folder(QStringLiteral("out"))});
    clickButton(window->contactController(), "nextButton");
    ASSERT_EQ(prompter.count(), 2);
    EXPECT_EQ(prompter.prompts().at(0).kind, Kind::Ask) << "to go on without recipients";

    // The first file's turn has begun; its work ends only once the event loop runs.
    EXPECT_EQ(statuses(),
              (QStringList{QStringLiteral("Encrypting"), QStringLiteral("Pending encryption"),
                           QStringLiteral("Pending encryption")}));
    ProcessWindow* progress = window->processWindow();
    ASSERT_NE(progress, nullptr);
    EXPECT_TRUE(progress->isVisible());
    EXPECT_EQ(progress->statusText(), QStringLiteral("Encrypting %1 ...").arg(x));
    EXPECT_EQ(progress->windowTitle(), QStringLiteral("Encrypting ..."));

    pressKey(Qt::Key_Delete, 0);
    EXPECT_EQ(window->model().rowCount(), 3) << "the file being processed cannot be removed";
    pressKey(Qt::Key_Backspace, 2);
    EXPECT_EQ(window->fileList(), (QStringList{x, y}));

    clickButton(progress, "cancelButton");
    EXPECT_EQ(statuses(),
              (QStringList{QStringLiteral("Encryption cancelled"), QStringLiteral("Encrypting")}));
    ASSERT_NE(window->processWindow(), nullptr);
    EXPECT_NE(window->processWindow(), progress) << "each file has a window of its own";
    EXPECT_EQ(window->processWindow()->statusText(), QStringLiteral("Encrypting %1 ...").arg(y));
    EXPECT_EQ(window->statusBar()->currentMessage(), QStringLiteral("Encrypting 2 of 2"));

    // Both rows selected: the finished one goes, the one being processed stays.
    CustomFileTableView* table = window->fileTableView();
    table->selectAll();
    QTest::keyClick(table, Qt::Key_Delete);
    EXPECT_EQ(window->fileList(), QStringList{y});

    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->fileList(), QStringList()) << statuses().join(u'/').toStdString();
    EXPECT_TRUE(eventually([&] { return window->processWindow() == nullptr; }));
}

TEST_F(FileWindowTest, AFolderKeepsItsLayoutThroughEncryptionAndBack) {
    openWindowAsAlice();
    const QString photos = folder(QStringLiteral("in/photos"));
    const QStringList tree{QStringLiteral("a.jpg"), QStringLiteral("2024/b.jpg"),
                           QStringLiteral("2024/summer/c.jpg")};
    for (const QString& name : tree) {
        QDir(photos).mkpath(QFileInfo(name).path());
        ASSERT_TRUE(putFile(QDir(photos).filePath(name), name.toUtf8()));
    }

    // A dropped folder is not taken, but no longer without a word.
    drop({photos});
    EXPECT_EQ(window->model().rowCount(), 0);
    EXPECT_EQ(window->statusBar()->currentMessage(),
              QStringLiteral("Folders are added with Add Folder\u2026"));

    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    prompter.answerOpen({photos});
    QTest::keySequence(window.get(), QKeySequence(QStringLiteral("Ctrl+Shift+O")));
    EXPECT_EQ(window->model().rowCount(), 3) << window->fileList().join(u' ').toStdString();

    clickToolBar(window.get(), "encryptAction");
    ASSERT_NE(window->contactController(), nullptr);
    const QString out = folder(QStringLiteral("out"));
    prompter.answerAsk(true);
    prompter.answerOpen({out});
    clickButton(window->contactController(), "nextButton");
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->model().rowCount(), 0) << statuses().join(u'/').toStdString();

    prompter.answerOpen({QDir(out).filePath(QStringLiteral("photos"))});
    window->findChild<QAction*>(QStringLiteral("addFolderAction"))->trigger();
    ASSERT_EQ(window->model().rowCount(), 3);
    const QString plain = folder(QStringLiteral("plain"));
    prompter.answerOpen({plain});
    clickToolBar(window.get(), "decryptAction");
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->model().rowCount(), 0) << statuses().join(u'/').toStdString();
    for (const QString& name : tree) {
        EXPECT_EQ(fileBytes(QDir(plain).filePath(QStringLiteral("photos/") + name)), name.toUtf8());
    }
}

TEST_F(FileWindowTest, TheContextMenuEncryptsOrDecryptsJustTheSelectedRows) {
    openWindowAsAlice();
    const QString a = writeFile(QStringLiteral("a.txt"), "a");
    const QString b = writeFile(QStringLiteral("b.txt"), "b");
    const QString c = writeFile(QStringLiteral("c.txt"), "c");
    window->handleExternalFileArray({a, b, c});
    const auto trigger = [&](const char* name, const QStringList& rows) {
        CustomFileTableView* table = window->fileTableView();
        table->clearSelection();
        for (const QString& path : rows) {
            table->selectionModel()->select(
                window->model().index(int(window->fileList().indexOf(path)), 0),
                QItemSelectionModel::Select | QItemSelectionModel::Rows);
        }
        for (QAction* action : window->contextActions()) {
            if (action->objectName() == QLatin1String(name)) {
                action->trigger();
            }
        }
    };

    trigger("encryptSelectedAction", {a, c});
    ASSERT_NE(window->contactController(), nullptr);
    const QString out = folder(QStringLiteral("out"));
    prompter.answerAsk(true);
    prompter.answerOpen({out});
    clickButton(window->contactController(), "nextButton");
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->fileList(), QStringList{b});
    EXPECT_EQ(statuses(), QStringList{QString()}) << "left out, not pending";
    EXPECT_EQ(QDir(out).entryList(QDir::Files, QDir::Name),
              (QStringList{QStringLiteral("a.txt.tvf"), QStringLiteral("c.txt.tvf")}));

    const QString protectedA = QDir(out).filePath(QStringLiteral("a.txt.tvf"));
    const QString protectedC = QDir(out).filePath(QStringLiteral("c.txt.tvf"));
    window->handleExternalFileArray({protectedA, protectedC});
    const QString plain = folder(QStringLiteral("plain"));
    prompter.answerOpen({plain});
    trigger("decryptSelectedAction", {protectedC});
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(QDir(plain).entryList(QDir::Files), QStringList{QStringLiteral("c.txt")});
    EXPECT_EQ(window->fileList().size(), 2);
    EXPECT_TRUE(window->fileList().contains(protectedA));
}

TEST_F(FileWindowTest, ARunThatEndsWhileTheAppIsNotInUseSaysHowItWent) {
    createAccount(QStringLiteral("alice"), QStringLiteral("pw"));
    signIn(QStringLiteral("alice"));
    // Never shown, so no window of the application is in use.
    window = std::make_unique<FileController>(hub, prompter);
    QStringList notices;
    window->setRunEndNotifier([&](const QString& summary) { notices.append(summary); },
                              std::chrono::milliseconds(0));
    const QString notProtected = writeFile(QStringLiteral("a.txt.tvf"), "plain text");
    window->handleExternalFileArray({writeFile(QStringLiteral("b.txt"), "b"), notProtected});
    prompter.answerOpen({folder(QStringLiteral("plain"))});
    window->DecryptButtonTapped();
    ASSERT_TRUE(eventually([&] { return idle() && !notices.isEmpty(); }));
    EXPECT_EQ(notices, QStringList{QStringLiteral("0 of 1 files done\n1 failed: see the list.")});

    // A run shorter than the minimum ends quietly.
    window->setRunEndNotifier([&](const QString& summary) { notices.append(summary); },
                              std::chrono::hours(1));
    NivoGXUtil::saveSettings(QString(), QString(), QString(), folder(QStringLiteral("out")),
                             QString());
    ASSERT_EQ(window->model().encryptRequested(), FileListModel::Request::ChooseRecipients);
    window->handleRecipientSelectionComplete({});
    ASSERT_TRUE(eventually([&] { return idle(); }));
    EXPECT_EQ(window->fileList(), QStringList{notProtected});
    QTest::qWait(50);
    EXPECT_EQ(notices.size(), 1);
}

TEST_F(FileWindowTest, ButtonsWithNothingToDoSayWhyAndOfferToClearTheList) {
    openWindowAsAlice();
    clickToolBar(window.get(), "encryptAction");
    clickToolBar(window.get(), "decryptAction");
    ASSERT_EQ(prompter.count(), 2);
    EXPECT_EQ(prompter.prompts().at(0).kind, Kind::Alert);
    EXPECT_EQ(prompter.prompts().at(0).message, QStringLiteral("No files to encrypt"));
    EXPECT_EQ(prompter.prompts().at(1).message, QStringLiteral("No files to decrypt"));

    // Only files count in a drop, each once.
    const QString report = writeFile(QStringLiteral("report.txt"), "r");
    drop({report, folder(QStringLiteral("in")), QStringLiteral("/no/such/file.tvf"), report});
    EXPECT_EQ(window->fileList(), QStringList{report});

    prompter.clear();
    clickToolBar(window.get(), "decryptAction");  // answered "No"
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Ask);
    EXPECT_EQ(prompter.last().message,
              QStringLiteral("Do you wish to remove all files in the list?"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("No files to decrypt"));
    EXPECT_EQ(window->fileList(), QStringList{report});

    // A protected file that went away before its turn is the only one to decrypt.
    pressKey(Qt::Key_Delete, 0);
    const QString gone = QDir(sandbox.root()).filePath(QStringLiteral("gone.txt.tvf"));
    window->handleExternalFile(gone);
    const QString plain = folder(QStringLiteral("plain"));
    NivoGXUtil::saveSettings(QString(), QString(), QString(), QString(), plain);
    prompter.clear();
    prompter.answerOpen({plain});
    clickToolBar(window.get(), "decryptAction");
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().openPanel.startFolder, plain);
    EXPECT_TRUE(idle());
    EXPECT_EQ(statuses(), QStringList{QStringLiteral("File no longer exists.")});

    // Every row has its outcome: nothing left to encrypt.
    prompter.answerAsk(true);
    clickToolBar(window.get(), "encryptAction");
    EXPECT_EQ(prompter.last().message,
              QStringLiteral("Do you wish to remove all files in the list?"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("No files to encrypt"));
    EXPECT_EQ(window->model().rowCount(), 0);
    EXPECT_EQ(window->contactController(), nullptr);
}

TEST_F(FileWindowTest, ProcessWindowShowsBytesWhenKnownAndBusyOtherwise) {
    ProcessController run(NivoGXUtil::runEnvironment());
    ProcessWindow progress(&run);
    auto* bar = progress.findChild<QProgressBar*>(QStringLiteral("progressIndicator"));
    ASSERT_NE(bar, nullptr);
    EXPECT_EQ(bar->maximum(), 0) << "busy until the run says how much there is";

    // Sizes beyond what an int holds still fill the bar in proportion.
    constexpr qint64 kHuge = qint64{6} << 30;
    Q_EMIT run.progress(kHuge / 4, kHuge);
    EXPECT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->value(), bar->maximum() / 4);
    Q_EMIT run.progress(0, 0);
    EXPECT_EQ(bar->maximum(), 0);

    // The line below the bar: sizes and time left only for a file big enough to take a while.
    EXPECT_EQ(ProcessWindow::progressText(400, 1000, 5000), QStringLiteral("40 %"));
    constexpr qint64 kMiB = 1024 * 1024;
    EXPECT_EQ(ProcessWindow::progressText(40 * kMiB, 100 * kMiB, 1000),
              QStringLiteral("40 %, 40.0 MiB of 100.0 MiB"));
    EXPECT_EQ(ProcessWindow::progressText(40 * kMiB, 100 * kMiB, 20000),
              QStringLiteral("40 %, 40.0 MiB of 100.0 MiB, about 30 s left"));
    EXPECT_EQ(ProcessWindow::progressText(10 * kMiB, 100 * kMiB, 20000),
              QStringLiteral("10 %, 10.0 MiB of 100.0 MiB, about 3 min left"));

    Q_EMIT run.statusChanged(QStringLiteral("Decrypting /a/b.tvf ..."),
                             QStringLiteral("Decrypting ..."));
    EXPECT_EQ(progress.statusText(), QStringLiteral("Decrypting /a/b.tvf ..."));
    EXPECT_EQ(progress.windowTitle(), QStringLiteral("Decrypting ..."));
}

}  // namespace
