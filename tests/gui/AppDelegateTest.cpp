// The launch decision, files handed to the application before and after sign-in, the menu
// entries that need a signed-in user, and how the main window ends the application.
#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileOpenEvent>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSignalSpy>
#include <QStatusBar>
#include <QUrl>

#include "GuiTestKit.h"
#include "TestFiles.h"
#include "account/AccountServer.h"
#include "account/LoginController.h"
#include "account/RegisterController.h"
#include "crypto/CertificateTrust.h"
#include "filelist/FileController.h"
#include "log/LogViewerController.h"
#include "session/NivoGXUtil.h"
#include "session/SignIn.h"
#include "shell/AppDelegate.h"
#include "shell/DialogPrompter.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class AppDelegateTest : public GuiTest {
protected:
    [[nodiscard]] bool menuItemsEnabled(bool enabled) const {
        for (const QAction* item : app.userMenuItems()) {
            if (item->isEnabled() != enabled) {
                return false;
            }
        }
        return app.userMenuItems().size() == 4;
    }

    AppDelegate app{hub, prompter};
    QSignalSpy terminate{&app, &AppDelegate::terminateRequested};
};

TEST_F(AppDelegateTest, SignUpSignsInAndDeliversTheFilesThatWaited) {
    const bool realStore = useRealSecretService();
    const QString first = makeFile(QStringLiteral("first.txt"));
    const QString second = makeFile(QStringLiteral("second.txt"));
    const QString listed1 = makeFile(QStringLiteral("b.txt"));
    const QString listed2 = makeFile(QStringLiteral("a.txt"));
    const QString offered = makeFile(QStringLiteral("offered.txt"));
    EXPECT_TRUE(app.application(first));
    EXPECT_TRUE(app.application(second));  // replaces the first, not yet delivered
    app.application(QStringList{listed1, listed2});

    app.applicationDidFinishLaunching();
    hub.postAddToExternalFile({offered});  // what a second launch hands over before sign-in
    for (const char* folder : {"pfx", "cert", "contacts", "log"}) {
        EXPECT_TRUE(
            QFileInfo(NivoGXUtil::applicationFolder() + u'/' + QLatin1String(folder)).isDir());
    }
    LoginController* login = app.loginController();
    ASSERT_NE(login, nullptr);
    EXPECT_TRUE(login->isVisible());
    EXPECT_EQ(app.fileController(), nullptr);
    EXPECT_TRUE(menuItemsEnabled(false));

    clickButton(login, "registerButton");
    RegisterController* signUp = login->registerController();
    ASSERT_NE(signUp, nullptr);
    typeInto(signUp, "textFieldNivoAccount", QStringLiteral("dora"));
    typeInto(signUp, "textFieldNivoPassword", QStringLiteral("Pass word 1"));
    typeInto(signUp, "textFieldRetypePassword", QStringLiteral("Pass word 1"));
    clickButton(signUp, "registerButton");

    ASSERT_TRUE(eventually([&] { return app.fileController() != nullptr; }));
    EXPECT_EQ(prompter.count(), 0);
    FileController* main = app.fileController();
    EXPECT_TRUE(main->isVisible());
    EXPECT_FALSE(login->isVisible());
    EXPECT_FALSE(signUp->isVisible());
    EXPECT_EQ(terminate.count(), 0);
    EXPECT_TRUE(menuItemsEnabled(true));
    EXPECT_EQ(main->fileList(), (QStringList{listed2, listed1, offered, second}));
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("dora"));
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), QStringLiteral("Pass word 1"));
    EXPECT_TRUE(NivoGXUtil::hasRequiredCredentials());
    if (!realStore) {
        EXPECT_EQ(sandbox.keychain().records().size(), 1);
    }

    // Once the main window is up, files go straight to it.
    const QString later = makeFile(QStringLiteral("later.txt"));
    app.application(later);
    EXPECT_TRUE(main->fileList().contains(later));
    EXPECT_EQ(app.externalFile(), QString());
}

TEST_F(AppDelegateTest, DocumentOpenEventsWaitForSignInThenGoStraightToTheList) {
    const auto openWithApplication = [](const QString& path) {
        QFileOpenEvent event(path);
        return QCoreApplication::sendEvent(QCoreApplication::instance(), &event);
    };
    const QString early = makeFile(QStringLiteral("early.txt"));
    app.applicationDidFinishLaunching();
    ASSERT_NE(app.loginController(), nullptr);
    EXPECT_TRUE(openWithApplication(early));
    EXPECT_TRUE(openWithApplication(sandbox.root())) << "a folder is taken and left out";
    EXPECT_EQ(app.externalFileArray(), QStringList{early});

    leaveCompleteSignIn(QStringLiteral("erin"));
    NivoGXUtil::generateUserContactDB(QStringLiteral("erin"));
    hub.postLoginCompleted();
    ASSERT_NE(app.fileController(), nullptr);
    EXPECT_EQ(app.fileController()->fileList(), QStringList{early});
    EXPECT_TRUE(app.externalFileArray().isEmpty());
    EXPECT_EQ(app.fileController()->statusBar()->currentMessage(),
              u"Folders are added with Add Folder\u2026"_s);

    const QString later = makeFile(QStringLiteral("later.txt"));
    EXPECT_TRUE(openWithApplication(later));
    EXPECT_EQ(app.fileController()->fileList(), (QStringList{early, later}));
    EXPECT_TRUE(openWithApplication(QStringLiteral("/no/such/file.tvf")));
    EXPECT_EQ(app.fileController()->fileList().size(), 2);
    EXPECT_EQ(prompter.count(), 0);
}

TEST_F(AppDelegateTest, CompleteSignInOpensTheMainWindowAndKeepsBackAVanishedFile) {
    leaveCompleteSignIn(QStringLiteral("erin"));
    const QString vanished = makeFile(QStringLiteral("vanished.txt"));
    const QString listed = QStringLiteral("/no/such/file.txt");  // a list is passed on untested
    app.application(vanished);
    app.application(QStringList{listed});
    QFile::remove(vanished);

    app.applicationDidFinishLaunching();
    EXPECT_EQ(app.loginController(), nullptr);
    ASSERT_NE(app.fileController(), nullptr);
    EXPECT_TRUE(app.fileController()->isVisible());
    EXPECT_TRUE(menuItemsEnabled(true));
    EXPECT_EQ(app.fileController()->fileList(), QStringList{listed});
    EXPECT_EQ(app.externalFile(), vanished);
    EXPECT_TRUE(app.externalFileArray().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(NivoGXUtil::contactDBPath(QStringLiteral("erin"))));
    ASSERT_TRUE(NivoGXUtil::getNivoProfile().has_value());
    EXPECT_EQ(NivoGXUtil::getNivoProfile()->Pfx, QByteArrayLiteral("key material"));

    // The window's Export Profile button is the menu's action.
    app.fileController()->findChild<QAction*>(QStringLiteral("exportProfileAction"))->trigger();
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, ScriptedPrompter::Kind::Save);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Export NIVO Profile to"));
}

TEST_F(AppDelegateTest, SignOutForgetsThePasswordAndQuits) {
    leaveCompleteSignIn(QStringLiteral("erin"));
    app.applicationDidFinishLaunching();
    ASSERT_NE(app.fileController(), nullptr);
    app.fileController()->findChild<QAction*>(QStringLiteral("logoutAction"))->trigger();
    EXPECT_EQ(terminate.count(), 1);
    // What sign-out keeps and forgets is FoldersAndSignInTest's and CredentialStoreTest's.
    EXPECT_FALSE(NivoGXUtil::hasRequiredCredentials());
    EXPECT_EQ(prompter.count(), 0) << "sign-out does not ask";
}

TEST_F(AppDelegateTest, MenuKeysReachTheirActionsAndAboutNamesTheUsersKey) {
    leaveCompleteSignIn(QStringLiteral("erin"));
    app.applicationDidFinishLaunching();
    FileController* main = app.fileController();
    ASSERT_NE(main, nullptr);
    main->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(main));
    QStringList entries;
    for (const QAction* entry : main->menuBar()->actions().constFirst()->menu()->actions()) {
        if (!entry->isSeparator()) {
            entries << entry->text() + u' ' + entry->shortcut().toString();
        }
    }
    EXPECT_EQ(
        entries,
        (QStringList{u"Add Files... Ctrl+O"_s, u"Add Folder... Ctrl+Shift+O"_s, u"Encrypt Ctrl+E"_s,
                     u"Decrypt Ctrl+D"_s, u"Export NIVO Profile... "_s, u"Export Contacts... "_s,
                     u"Import Contacts... "_s, u"View Log Ctrl+L"_s, u"Quit Ctrl+Q"_s}));

    QTest::keySequence(main, QKeySequence(u"Ctrl+O"_s));
    QTest::keySequence(main, QKeySequence(u"Ctrl+Shift+O"_s));
    QTest::keySequence(main, QKeySequence(u"Ctrl+E"_s));
    QTest::keySequence(main, QKeySequence(u"Ctrl+D"_s));
    ASSERT_EQ(prompter.count(), 4);
    EXPECT_EQ(prompter.prompts().at(0).message, u"Select files for encryption/decryption"_s);
    EXPECT_TRUE(prompter.prompts().at(1).openPanel.chooseFolders);
    EXPECT_EQ(prompter.prompts().at(2).message, u"No files to encrypt"_s);
    EXPECT_EQ(prompter.prompts().at(3).message, u"No files to decrypt"_s);
    QTest::keySequence(main, QKeySequence(u"Ctrl+L"_s));
    EXPECT_NE(app.logViewerController(), nullptr);
    main->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(main));
    QTest::keySequence(main, QKeySequence::HelpContents);
    EXPECT_EQ(prompter.last().message, u"Using NIVO-GX"_s) << "no README installed here";

    app.findChild<QAction*>(u"aboutItem"_s)->trigger();
    EXPECT_EQ(prompter.last().kind, ScriptedPrompter::Kind::Inform);
    EXPECT_EQ(prompter.last().message, u"About NIVO-GX"_s);
    for (const QString& part :
         {QString::fromLatin1(qVersion()), u"OpenSSL 3"_s, AccountServer::baseUrl().toString(),
          CertificateTrust::fingerprint("key material")}) {
        EXPECT_TRUE(prompter.last().informativeText.contains(part)) << part.toStdString();
    }

    main->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(main));
    QTest::keySequence(main, QKeySequence(u"Ctrl+Q"_s));
    EXPECT_EQ(terminate.count(), 1);
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), u"pw"_s) << "quitting keeps the sign-in";
}

TEST_F(AppDelegateTest, HelpOpensTheInstalledReadmeOrSaysWhereItShouldBe) {
    const QString readme = QDir(sandbox.root()).filePath(u"README.md"_s);
    QList<QUrl> opened;
    bool opens = true;
    app.setUrlOpener([&](const QUrl& url) {
        opened.append(url);
        return opens;
    });
    app.setHelpFile(readme);
    app.findChild<QAction*>(u"helpItem"_s)->trigger();
    ASSERT_EQ(prompter.count(), 1) << "not installed";
    EXPECT_EQ(prompter.last().message, u"Using NIVO-GX"_s);
    EXPECT_TRUE(prompter.last().informativeText.endsWith(u'\n' + readme));
    EXPECT_TRUE(opened.isEmpty());

    ASSERT_TRUE(putFile(readme, "# NIVO-GX\n"));
    app.help();
    EXPECT_EQ(opened, QList<QUrl>{QUrl::fromLocalFile(readme)});
    EXPECT_EQ(prompter.count(), 1);

    opens = false;  // the desktop has no program for it
    app.help();
    ASSERT_EQ(prompter.count(), 2);
    EXPECT_TRUE(prompter.last().informativeText.endsWith(u'\n' + readme));
}

TEST_F(AppDelegateTest, EachExportPanelStartsWhereItsOwnLastExportWent) {
    const QString documents = QDir(sandbox.root()).filePath(u"documents"_s);
    ASSERT_TRUE(QDir().mkpath(documents));
    ASSERT_TRUE(putFile(QDir(sandbox.configHome()).filePath(u"user-dirs.dirs"_s),
                        "XDG_DOCUMENTS_DIR=\"" + documents.toUtf8() + "\"\n"));
    leaveCompleteSignIn(u"erin"_s);
    app.applicationDidFinishLaunching();
    app.viewLog();
    const std::function<void()> exports[] = {
        [&] { app.findChild<QAction*>(u"exportProfileMenuItem"_s)->trigger(); },
        [&] { app.findChild<QAction*>(u"exportMenuItem"_s)->trigger(); },
        [&] { clickButton(app.logViewerController(), "exportButton"); }};
    QStringList firstStarts;
    QStringList secondStarts;
    for (QStringList* starts : {&firstStarts, &secondStarts}) {
        int kind = 0;
        for (const auto& runExport : exports) {
            const QString folder = QDir(sandbox.root()).filePath(u"export%1"_s.arg(kind++));
            QDir().mkpath(folder);
            prompter.answerSave(QDir(folder).filePath(u"copy"_s));
            runExport();
            for (const auto& prompt : prompter.prompts()) {
                if (prompt.kind == ScriptedPrompter::Kind::Save) {
                    starts->append(prompt.savePanel.startFolder);
                }
            }
            prompter.clear();
        }
    }
    EXPECT_EQ(firstStarts, QStringList(3, documents));
    EXPECT_EQ(secondStarts, (QStringList{QDir(sandbox.root()).filePath(u"export0"_s),
                                         QDir(sandbox.root()).filePath(u"export1"_s),
                                         QDir(sandbox.root()).filePath(u"export2"_s)}));
}

TEST_F(AppDelegateTest, AlertsShowTheirWholeTextHoweverLong) {
    const QString path =
        u"/home/someone/Documents/a folder with a long name/and another one/"
        u"quarterly-report-final-final.pdf"_s;
    for (const auto& [message, detail] : QList<std::pair<QString, QString>>{
             {u"Do you wish to proceed without other recipients?"_s,
              u"Only you will be able to open the files."_s},
             {u"Do you wish to remove all files in the list?"_s, u"No files to encrypt"_s},
             {u"Unable to export Log file. Log file does not exist."_s, QString()},
             {u"Decryption failed. You are not a recipient of the file, or it was damaged on "
              u"the way and cannot be read any more."_s,
              path}}) {
        for (const bool question : {false, true}) {
            const std::unique_ptr<QMessageBox> box =
                question ? DialogPrompter::questionBox(nullptr, message, detail)
                         : DialogPrompter::alertBox(nullptr, message, detail);
            EXPECT_EQ(clippedText(*box), QString());
        }
    }
}

TEST_F(AppDelegateTest, ClosingTheMainWindowAsksAboutSignOutAndQuitsEitherWay) {
    leaveCompleteSignIn(QStringLiteral("erin"));
    app.applicationDidFinishLaunching();
    app.fileController()->close();  // answered "No"
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Do you wish to logout?"));
    EXPECT_EQ(terminate.count(), 1);
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), QStringLiteral("pw"));

    AppDelegate again{hub, prompter};
    QSignalSpy terminateAgain{&again, &AppDelegate::terminateRequested};
    again.applicationDidFinishLaunching();
    prompter.answerAsk(true);
    again.fileController()->close();
    EXPECT_EQ(terminateAgain.count(), 1);
    EXPECT_TRUE(NivoGXUtil::getNivoPassword().isEmpty());
    EXPECT_FALSE(NivoGXUtil::hasRequiredCredentials());
}

TEST_F(AppDelegateTest, ExportedProfileSignsInOnceTheServerIsGone) {
    // Signed in as the sign-in window does it; SignInWindowTest walks the window.
    createAccount(QStringLiteral("alice"), QStringLiteral("pw"));
    ASSERT_FALSE(SignIn::keep(u"alice"_s, u"pw"_s, SignIn::requestProfile(u"alice"_s, u"pw"_s)));
    app.applicationDidFinishLaunching();
    ASSERT_NE(app.fileController(), nullptr);

    const QString chosen = QDir(sandbox.root()).filePath(QStringLiteral("profile.txt"));
    prompter.answerSave(chosen);
    app.findChild<QAction*>(QStringLiteral("exportProfileMenuItem"))->trigger();
    ASSERT_EQ(prompter.count(), 1);
    const auto& panel = prompter.last().savePanel;
    EXPECT_EQ(panel.message, QStringLiteral("Export NIVO Profile to"));
    EXPECT_EQ(panel.allowedType, QStringLiteral("vts"));
    EXPECT_TRUE(panel.defaultName.startsWith(QStringLiteral("profile_alice_")))
        << panel.defaultName.toStdString();
    EXPECT_EQ(panel.defaultName.size(), QStringLiteral("profile_alice_yyyyMMddHHmmss.vts").size());
    const QString written = chosen + QStringLiteral(".vts");
    ASSERT_TRUE(QFileInfo::exists(written));

    // The next run finds the user signed out and the server unreachable.
    NivoGXUtil::logout();
    NivoGXUtil::resetState();
    stopServer();
    prompter.clear();
    AppDelegate next{hub, prompter};
    next.applicationDidFinishLaunching();
    ASSERT_NE(next.loginController(), nullptr);
    EXPECT_EQ(fieldText(next.loginController(), "fieldUsername"), QStringLiteral("alice"));
    prompter.answerAsk(true);
    prompter.answerOpen({written});
    typeInto(next.loginController(), "fieldPassword", QStringLiteral("pw"));
    clickButton(next.loginController(), "loginButton");
    ASSERT_TRUE(eventually([&] { return next.fileController() != nullptr; }));
    ASSERT_EQ(prompter.count(), 2);
    EXPECT_EQ(prompter.prompts().at(0).message, QStringLiteral("Unable to connect to NIVO Server"));
    EXPECT_TRUE(NivoGXUtil::hasRequiredCredentials());
}

}  // namespace
