// Draws the main window, the processing window, the alerts, the About box, the recipient window
// and the log viewer over a made-up user with a dozen contacts and a few dozen log lines, and
// saves each as a PNG, for looking at the windows without a full run (run it under Xvfb for the
// desktop's real style):
//
//   gui_window_shots OUTPUT_FOLDER
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenuBar>
#include <QMessageBox>
#include <QTableView>
#include <QTest>
#include <cstdio>

#include "ScriptedHttpsServer.h"
#include "ScriptedPrompter.h"
#include "TestFiles.h"
#include "TestPki.h"
#include "UserSandbox.h"
#include "account/AccountServer.h"
#include "contacts/ContactController.h"
#include "crypto/NivoCryptoOperation.h"
#include "filelist/FileController.h"
#include "filelist/ResultsPanel.h"
#include "log/ActivityLog.h"
#include "log/LogViewerController.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "processing/ProcessWindow.h"
#include "session/NivoGXUtil.h"
#include "shell/AppDelegate.h"
#include "shell/DialogPrompter.h"
#include "shell/IconSet.h"
#include "shell/NotificationHub.h"

namespace {

// One name as long as a company's address book gives them, to see that it still reads.
const QStringList kPeople{
    QStringLiteral("anna.berg"),   QStringLiteral("Bob"),
    QStringLiteral("carol-ng"),    QStringLiteral("dave"),
    QStringLiteral("erin.okafor"), QStringLiteral("frank"),
    QStringLiteral("grace.li"),    QStringLiteral("heidi"),
    QStringLiteral("ivan.petrov"), QStringLiteral("judy"),
    QStringLiteral("mallory"),     QStringLiteral("maximiliane.oppenheimer-castellanos"),
    QStringLiteral("zoe.sanchez")};

void fillUser(const QString& sandboxRoot) {
    NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), TestPki::kPassword);
    (void)NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::generateUserContactDB(QStringLiteral("alice"));
    QList<qint64> lastChoice;
    // Mallory's key came from somewhere else than the service.
    TestPki elsewhere;
    const QByteArray mallorysOwn = elsewhere.createSelfSigned(QStringLiteral("mallory")).certDer;
    for (const QString& person : kPeople) {
        const QByteArray certificate =
            person == u"mallory" ? mallorysOwn : TestPki::serviceCertificate(person.toLower());
        const qint64 id = NivoGXUtil::addContact({0, person, person, certificate});
        if (person.startsWith(u'c') || person.startsWith(u'g') || person.startsWith(u'j')) {
            lastChoice << id;
        }
    }
    (void)NivoGXUtil::saveContactPreset({QStringLiteral("Last used contacts"), lastChoice});

    QFile log(NivoGXUtil::logPath());
    if (!log.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return;
    }
    const QDateTime start(QDate(2026, 11, 2), QTime(8, 41, 7));
    const QStringList names{QStringLiteral("quarterly-report.pdf"),
                            QStringLiteral("budget 2027.xlsx"),
                            QStringLiteral("contract_draft_v3.docx"),
                            QStringLiteral("photo-0042.jpg"),
                            QStringLiteral("minutes.txt"),
                            QStringLiteral("design-notes.md")};
    for (int i = 0; i < 36; ++i) {
        const bool encrypt = i % 3 != 2;
        const QString file =
            QDir(sandboxRoot)
                .filePath((encrypt ? QStringLiteral("work/") : QStringLiteral("inbox/")) +
                          names.at(i % names.size()) +
                          (encrypt ? QString() : QStringLiteral(".tvf")));
        const QStringList recipients =
            encrypt ? QStringList{kPeople.at(i % kPeople.size()).toLower(), QStringLiteral("alice")}
                    : QStringList{kPeople.at((i * 5) % kPeople.size()).toLower()};
        QString status = QStringLiteral("Success");
        if (i % 11 == 7) {
            status = QStringLiteral("Cancelled");
        } else if (i % 13 == 5) {
            status = QStringLiteral("Failed");
        }
        log.write(
            ActivityLog::formatLine(start.addSecs(i * 5437),
                                    encrypt ? QStringLiteral("Encrypt") : QStringLiteral("Decrypt"),
                                    file, recipients, status)
                .toUtf8());
    }
}

bool save(QWidget& window, const QString& folder, const char* name) {
    window.show();
    (void)QTest::qWaitForWindowExposed(&window);
    QTest::qWait(300);
    const QString path = QDir(folder).filePath(QString::fromLatin1(name));
    const bool saved = window.grab().save(path);
    std::printf("%s %s\n", saved ? "wrote" : "could not write", qPrintable(path));
    return saved;
}

}  // namespace

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));
    QApplication::setWindowIcon(IconSet::named(IconSet::kApplication));
    if (argc != 2) {
        std::fprintf(stderr, "usage: gui_window_shots OUTPUT_FOLDER\n");
        return 2;
    }
    const QString folder = QDir(QString::fromLocal8Bit(argv[1])).absolutePath();
    QDir().mkpath(folder);
    UserSandbox sandbox;
    fillUser(sandbox.root());
    // Alice's key is real, so that files are opened, or refused, as in a real session.
    const TestPki::Identity alice =
        TestPki::devService().createUser(QStringLiteral("alice"), TestPki::KeyType::Ec);
    if (!NivoGXUtil::setNivoProfile(TestPki::profileFor(alice, QStringLiteral("alice")))) {
        return 1;
    }
    NotificationHub hub;
    ScriptedPrompter prompter;
    AppDelegate application(hub, prompter);

    bool ok = true;
    FileController main(hub, prompter);
    application.installMenu(main.menuBar(), &main);
    // Two files that fail to open keep their rows, each with its reason: one only looks
    // protected, the other was protected by Bob for Carol alone.
    const QDir root(sandbox.root());
    for (const QString& name :
         {QStringLiteral("inbox/photo-0042.jpg.tvf"), QStringLiteral("work/budget 2027.xlsx"),
          QStringLiteral("work/minutes.txt")}) {
        QDir().mkpath(QFileInfo(root.filePath(name)).path());
        (void)putFile(root.filePath(name), "not a protected file");
    }
    const TestPki::Identity bob =
        TestPki::devService().createUser(QStringLiteral("bob"), TestPki::KeyType::Ec);
    const QString forCarol = root.filePath(QStringLiteral("inbox/letter-to-carol.pdf.tvf"));
    (void)NivoCryptoOperation::encryptData(
        "for Carol's eyes", TestPki::profileFor(bob, QStringLiteral("bob")), TestPki::kPassword,
        {TestPki::serviceCertificate(QStringLiteral("carol-ng"))}, forCarol);
    main.handleExternalFileArray({root.filePath(QStringLiteral("work/budget 2027.xlsx")),
                                  root.filePath(QStringLiteral("work/minutes.txt")),
                                  root.filePath(QStringLiteral("inbox/photo-0042.jpg.tvf")),
                                  forCarol});
    NivoGXUtil::saveSettings(QString(), QString(), QString(), QString(), sandbox.root());
    main.model().startDecryption();
    (void)QTest::qWaitFor([&main] { return !main.model().isProcessing(); }, 10000);
    // What else a session's results show: a verified sender, one that only claims a contact's
    // name, and a protected file.
    RunResults& results = main.resultsPanel()->model();
    const QString inbox = QDir(sandbox.root()).filePath(QStringLiteral("inbox/"));
    RunResults::Result opened{inbox + QStringLiteral("contract_draft_v3.docx.tvf"),
                              RunResults::Kind::Opened,
                              {},
                              inbox + QStringLiteral("contract_draft_v3.docx"),
                              {QStringLiteral("grace.li"), SenderVerdict::Trust::Verified, {}}};
    results.add(opened);
    opened.inputPath = inbox + QStringLiteral("invoice-2026-11.pdf.tvf");
    opened.outputPath = inbox + QStringLiteral("invoice-2026-11.pdf");
    opened.sender = {QStringLiteral("bob"), SenderVerdict::Trust::SelfSigned,
                     QStringLiteral("bob")};
    results.add(opened);
    results.add({QDir(sandbox.root()).filePath(QStringLiteral("work/design-notes.md")),
                 RunResults::Kind::Protected,
                 {},
                 QDir(sandbox.root()).filePath(QStringLiteral("work/design-notes.md.tvf")),
                 {}});
    ok = save(main, folder, "main-window.png") && ok;

    // A file on its way, at 40 %.
    ProcessController run(NivoGXUtil::runEnvironment());
    ProcessWindow progress(&run);
    Q_EMIT run.statusChanged(
        QStringLiteral("Encrypting %1 ...")
            .arg(QDir(sandbox.root()).filePath(QStringLiteral("work/quarterly-report.pdf"))),
        QStringLiteral("Encrypting ..."));
    constexpr qint64 kMiB = 1024 * 1024;
    Q_EMIT run.progress(48 * kMiB, 120 * kMiB);
    ok = save(progress, folder, "processing-window.png") && ok;
    progress.hide();

    // The alerts and questions, as the application words them.
    const std::unique_ptr<QMessageBox> question = DialogPrompter::questionBox(
        nullptr, QStringLiteral("Do you wish to proceed without other recipients?"),
        QStringLiteral("Only you will be able to open the protected files."));
    ok = save(*question, folder, "question.png") && ok;
    question->close();
    const std::unique_ptr<QMessageBox> alert = DialogPrompter::alertBox(
        nullptr, QStringLiteral("Unable to export Log file. Log file does not exist."), QString());
    ok = save(*alert, folder, "alert.png") && ok;
    alert->close();
    const std::unique_ptr<QMessageBox> about = DialogPrompter::alertBox(
        nullptr, QStringLiteral("About NIVO-GX"), AppDelegate::aboutText());
    about->setIcon(QMessageBox::Information);
    ok = save(*about, folder, "about.png") && ok;
    about->close();

    ContactController recipients(hub, prompter);
    recipients.setAttribute(Qt::WA_DeleteOnClose, false);
    recipients.searchNivoID(QStringLiteral("heidi"));
    // Clicked, a contact shows its certificate.
    auto* available = recipients.findChild<QTableView*>(QStringLiteral("tableViewAvailable"));
    QTest::mouseClick(available->viewport(), Qt::LeftButton, {},
                      available->visualRect(available->model()->index(2, 0)).center());
    ok = save(recipients, folder, "recipient-window.png") && ok;
    // A contact whose key the service did not issue, clicked.
    QTest::mouseClick(
        available->viewport(), Qt::LeftButton, {},
        available->visualRect(available->model()->index(int(kPeople.indexOf(u"mallory")), 0))
            .center());
    ok = save(recipients, folder, "recipient-window-unverified.png") && ok;
    // A look-up under way: the server takes its time.
    ScriptedHttpsServer slowServer;
    slowServer.hang();
    AccountServer::setBaseUrl(slowServer.baseUrl());
    recipients.searchNivoID(QStringLiteral("oscar"));
    ok = save(recipients, folder, "recipient-window-searching.png") && ok;
    recipients.close();

    LogViewerController viewer(prompter);
    ok = save(viewer, folder, "log-viewer.png") && ok;
    ok = IconSet::named(IconSet::kApplication)
             .pixmap(128, 128)
             .save(QDir(folder).filePath(QStringLiteral("application-icon.png"))) &&
         ok;
    viewer.EncryptButtonTapped();
    ok = save(viewer, folder, "log-viewer-encryptions.png") && ok;
    return ok ? 0 : 1;
}
