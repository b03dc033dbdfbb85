#include "shell/AppDelegate.h"

#include <openssl/crypto.h>

#include <QAction>
#include <QCoreApplication>
#include <QDateTime>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFileOpenEvent>
#include <QLoggingCategory>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QUrl>
#include <utility>

#include "account/AccountServer.h"
#include "account/LoginController.h"
#include "contacts/ContactDB.h"
#include "crypto/CertificateTrust.h"
#include "filelist/FileController.h"
#include "log/LogViewerController.h"
#include "platform/ExportFileName.h"
#include "session/NivoGXUtil.h"
#include "session/UserDataExport.h"
#include "shell/NIVOGXService.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcShell, "nivogx.shell")

namespace {

const char* const kFileMenu = QT_TRANSLATE_NOOP("AppDelegate", "&File");
const char* const kExportContactsItem = QT_TRANSLATE_NOOP("AppDelegate", "Export Contacts...");
const char* const kImportContactsItem = QT_TRANSLATE_NOOP("AppDelegate", "Import Contacts...");
const char* const kExportProfileItem = QT_TRANSLATE_NOOP("AppDelegate", "Export NIVO Profile...");
const char* const kViewLogItem = QT_TRANSLATE_NOOP("AppDelegate", "View Log");
const char* const kHelpMenu = QT_TRANSLATE_NOOP("AppDelegate", "&Help");
const char* const kQuitItem = QT_TRANSLATE_NOOP("AppDelegate", "Quit");
const char* const kAboutItem = QT_TRANSLATE_NOOP("AppDelegate", "About NIVO-GX");
const char* const kHelpItem = QT_TRANSLATE_NOOP("AppDelegate", "NIVO-GX Help");
const char* const kAboutText = QT_TRANSLATE_NOOP("AppDelegate",
                                                 "Version %1\n"
                                                 "Qt %2, %3\n"
                                                 "Account server: %4\n"
                                                 "Your certificate (SHA-256):\n%5");
const char* const kNobodySignedIn = QT_TRANSLATE_NOOP("AppDelegate", "nobody signed in");
const char* const kHelpTitle = QT_TRANSLATE_NOOP("AppDelegate", "Using NIVO-GX");
const char* const kHelpText = QT_TRANSLATE_NOOP(
    "AppDelegate",
    "Add files with Add Files... (Ctrl+O) or whole folders with Add Folder... (Ctrl+Shift+O), "
    "or drop files on the list.\n\n"
    "Encrypt (Ctrl+E) asks for the people who may open the files and for a folder for the "
    "protected copies; you can always open them yourself.\n\n"
    "Decrypt (Ctrl+D) asks for a folder and names who sent each file, and whether the account "
    "service stands behind that sender.\n\n"
    "Right-click files for Remove, Show in Folder, or to encrypt or decrypt just those. "
    "View Log (Ctrl+L) lists everything done so far.\n\n"
    "The section \"Using the app\" of the README that comes with NIVO-GX says more:\n%1");
const char* const kSaveContactsTo = QT_TRANSLATE_NOOP("AppDelegate", "Save contacts to");
const char* const kExportProfileTo = QT_TRANSLATE_NOOP("AppDelegate", "Export NIVO Profile to");
const char* const kSelectContactsFile =
    QT_TRANSLATE_NOOP("AppDelegate", "Select contacts file to import");

// Where the window manager leaves placement to the application, a new window opens mid-screen.
void showCentred(QWidget* window) {
    if (!window->testAttribute(Qt::WA_Resized)) {
        window->adjustSize();
    }
    if (const QScreen* screen = window->screen()) {
        window->move(screen->availableGeometry().center() - window->rect().center());
    }
    window->show();
}

}  // namespace

AppDelegate::AppDelegate(NotificationHub& hub, Prompter& prompter, QObject* parent)
    : QObject(parent),
      m_hub(hub),
      m_prompter(prompter),
      m_openUrl([](const QUrl& url) { return QDesktopServices::openUrl(url); }),
      m_exportMenuItem(new QAction(tr(kExportContactsItem), this)),
      m_importMenuItem(new QAction(tr(kImportContactsItem), this)),
      m_exportProfileMenuItem(new QAction(tr(kExportProfileItem), this)),
      m_viewLogItem(new QAction(tr(kViewLogItem), this)),
      m_quitItem(new QAction(tr(kQuitItem), this)),
      m_aboutItem(new QAction(tr(kAboutItem), this)),
      m_helpItem(new QAction(tr(kHelpItem), this)) {
    m_viewLogItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
    m_quitItem->setObjectName(u"quitItem"_s);
    m_quitItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_quitItem->setMenuRole(QAction::QuitRole);
    m_aboutItem->setObjectName(u"aboutItem"_s);
    m_aboutItem->setMenuRole(QAction::AboutRole);
    m_helpItem->setObjectName(u"helpItem"_s);
    m_helpItem->setShortcut(QKeySequence::HelpContents);
    connect(m_quitItem, &QAction::triggered, this, &AppDelegate::terminateRequested);
    connect(m_aboutItem, &QAction::triggered, this, &AppDelegate::about);
    connect(m_helpItem, &QAction::triggered, this, &AppDelegate::help);
    m_exportMenuItem->setObjectName(u"exportMenuItem"_s);
    m_importMenuItem->setObjectName(u"importMenuItem"_s);
    m_exportProfileMenuItem->setObjectName(u"exportProfileMenuItem"_s);
    m_viewLogItem->setObjectName(u"viewLogItem"_s);
    connect(m_exportMenuItem, &QAction::triggered, this, &AppDelegate::exportContacts);
    connect(m_importMenuItem, &QAction::triggered, this, &AppDelegate::importContacts);
    connect(m_exportProfileMenuItem, &QAction::triggered, this, &AppDelegate::exportNivoProfile);
    connect(m_viewLogItem, &QAction::triggered, this, &AppDelegate::viewLog);
    // The platform's document-open requests (a file dropped on the application's icon, opened
    // from the file manager) come to the application object as events.
    QCoreApplication::instance()->installEventFilter(this);
}

// The windows go first: they hold references to the hub and the prompter.
AppDelegate::~AppDelegate() {
    m_fileController.reset();
    m_loginController.reset();
}

QList<QAction*> AppDelegate::userMenuItems() const {
    return {m_exportMenuItem, m_importMenuItem, m_exportProfileMenuItem, m_viewLogItem};
}

void AppDelegate::installMenu(QMenuBar* menuBar, const FileController* window) const {
    QMenu* menu = menuBar->addMenu(tr(kFileMenu));
    if (window != nullptr) {
        const QList<QAction*> actions = window->fileActions();
        menu->addActions(actions.mid(0, 2));  // adding files and folders
        menu->addSeparator();
        menu->addActions(actions.mid(2));  // encrypting and decrypting
        menu->addSeparator();
    }
    menu->addAction(m_exportProfileMenuItem);
    menu->addSeparator();
    menu->addAction(m_exportMenuItem);
    menu->addAction(m_importMenuItem);
    menu->addSeparator();
    menu->addAction(m_viewLogItem);
    menu->addSeparator();
    menu->addAction(m_quitItem);
    QMenu* help = menuBar->addMenu(tr(kHelpMenu));
    help->addAction(m_helpItem);
    help->addAction(m_aboutItem);
}

QString AppDelegate::aboutText() {
    const std::optional<NivoProfile> profile = NivoGXUtil::getNivoProfile();
    const QString fingerprint = profile && !profile->Cer.isEmpty()
                                    ? CertificateTrust::fingerprint(profile->Cer)
                                    : tr(kNobodySignedIn);
    return tr(kAboutText)
        .arg(QCoreApplication::applicationVersion(), QString::fromLatin1(qVersion()),
             QString::fromLatin1(OpenSSL_version(OPENSSL_VERSION)),
             AccountServer::baseUrl().toString(), fingerprint);
}

void AppDelegate::about() {
    m_prompter.inform(m_fileController.get(), tr(kAboutItem), aboutText());
}

// The README opens in the desktop's program for it; where it is missing or cannot be opened,
// a short help says where it should be.
void AppDelegate::help() {
    if (QFileInfo(m_helpFile).isFile() && m_openUrl(QUrl::fromLocalFile(m_helpFile))) {
        return;
    }
    m_prompter.inform(m_fileController.get(), tr(kHelpTitle), tr(kHelpText).arg(m_helpFile));
}

void AppDelegate::setUserMenuItemsEnabled(bool enabled) {
    for (QAction* item : userMenuItems()) {
        item->setEnabled(enabled);
    }
}

void AppDelegate::applicationDidFinishLaunching() {
    setUserMenuItemsEnabled(false);
    m_nivoGXService = new NIVOGXService(m_hub, this);
    if (!m_serviceName.isEmpty() && !m_nivoGXService->listen(m_serviceName)) {
        qCWarning(lcShell) << "files from later launches cannot be received at" << m_serviceName;
    }
    connect(&m_hub, &NotificationHub::loginCompleted, this, &AppDelegate::loginCompleted);
    connect(&m_hub, &NotificationHub::addToExternalFile, this, &AppDelegate::addToExternalFiles);
    connect(&m_hub, &NotificationHub::foldersSkipped, this,
            [this] { m_foldersSkipped = m_foldersSkipped || !m_fileController; });
    NivoGXUtil::removeStaleTemporaries();
    if (!NivoGXUtil::generateRequiredDirectory()) {
        m_loginController = std::make_unique<LoginController>(m_hub, m_prompter);
        installMenu(m_loginController->menuBar());
        connect(m_loginController.get(), &LoginController::terminateRequested, this,
                &AppDelegate::terminateRequested);
        showCentred(m_loginController.get());
        return;
    }
    NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
    showMainWindow();
    deliverWaitingFiles();
}

void AppDelegate::loginCompleted() {
    showMainWindow();
    deliverWaitingFiles();
}

void AppDelegate::showMainWindow() {
    setUserMenuItemsEnabled(true);
    m_fileController = std::make_unique<FileController>(m_hub, m_prompter);
    installMenu(m_fileController->menuBar(), m_fileController.get());
    connect(m_fileController.get(), &FileController::terminateRequested, this,
            &AppDelegate::terminateRequested);
    connect(m_fileController.get(), &FileController::exportProfileRequested, this,
            &AppDelegate::exportNivoProfile);
    showCentred(m_fileController.get());
}

void AppDelegate::deliverWaitingFiles() {
    // A single file that has gone away meanwhile is kept back, not reported.
    if (!m_externalFile.isEmpty() && QFileInfo::exists(m_externalFile)) {
        notifyExternalFile();
    }
    if (m_externalFileArray && !m_externalFileArray->isEmpty()) {
        notifyExternalFileArray();
    }
    if (std::exchange(m_foldersSkipped, false)) {
        m_hub.postFoldersSkipped();
    }
}

bool AppDelegate::application(const QString& path) {
    m_externalFile = path;
    if (m_fileController) {
        notifyExternalFile();
    }
    return true;
}

void AppDelegate::application(const QStringList& paths) {
    if (!m_externalFileArray) {
        m_externalFileArray.emplace();
    }
    m_externalFileArray->append(paths);
    if (m_fileController) {
        notifyExternalFileArray();
    }
}

void AppDelegate::notifyExternalFile() {
    m_hub.postHandleExternalFile(m_externalFile);
    m_externalFile = u""_s;
}

void AppDelegate::notifyExternalFileArray() {
    // Delivery is synchronous: receivers have taken their copies when the post returns.
    m_hub.postHandleExternalFileArray(m_externalFileArray.value_or(QStringList()));
    if (m_externalFileArray) {
        m_externalFileArray->clear();
    }
}

void AppDelegate::addToExternalFiles(const QStringList& paths) {
    if (!m_externalFileArray) {
        m_externalFileArray.emplace();
    }
    m_externalFileArray->append(paths);
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::FileOpen || watched != QCoreApplication::instance()) {
        return QObject::eventFilter(watched, event);
    }
    const QString path = static_cast<QFileOpenEvent*>(event)->file();
    if (path.isEmpty()) {
        return false;
    }
    // The same way as the files of a later launch: to the list when somebody is signed in,
    // kept until sign-in otherwise.
    if (m_nivoGXService != nullptr) {
        m_nivoGXService->addToNIVOGX({path});
    } else {
        addToExternalFiles({path});
    }
    return true;
}

void AppDelegate::exportContacts() {
    Prompter::SavePanel panel;
    panel.message = tr(kSaveContactsTo);
    panel.allowedType = ExportFileName::kContactsType;
    panel.defaultName =
        ExportFileName::contactsName(NivoGXUtil::getNivoUsername(), QDateTime::currentDateTime());
    panel.startFolder = m_contactsExportFolder.start();
    const QString chosen = m_prompter.save(nullptr, panel);
    if (chosen.isEmpty()) {
        return;
    }
    m_contactsExportFolder.remember(chosen);
    if (const auto result = UserDataExport::exportContacts(chosen); !result.failure.isEmpty()) {
        displayAlertBox(result.failure);
    }
}

void AppDelegate::exportNivoProfile() {
    Prompter::SavePanel panel;
    panel.message = tr(kExportProfileTo);
    panel.allowedType = ExportFileName::kProfileType;
    panel.defaultName =
        ExportFileName::profileName(NivoGXUtil::getNivoUsername(), QDateTime::currentDateTime());
    panel.startFolder = m_profileExportFolder.start();
    const QString chosen = m_prompter.save(nullptr, panel);
    if (chosen.isEmpty()) {
        return;
    }
    m_profileExportFolder.remember(chosen);
    if (const auto result = UserDataExport::exportProfile(chosen); !result.failure.isEmpty()) {
        displayAlertBox(result.failure);
    }
}

void AppDelegate::importContacts() {
    Prompter::OpenPanel panel;
    panel.message = tr(kSelectContactsFile);
    panel.allowedTypes = {ExportFileName::kContactsType};
    const QStringList chosen = m_prompter.open(nullptr, panel);
    if (chosen.isEmpty()) {
        return;
    }
    QStringList skipped;
    const QString message = NivoGXUtil::importContacts(chosen.constFirst(), &skipped);
    if (!message.isEmpty()) {
        displayAlertBox(message);
        return;
    }
    if (!skipped.isEmpty()) {
        displayAlertBox(ContactDB::notImportedMessage(skipped));
    }
    m_hub.postContactImportCompleted();
}

void AppDelegate::viewLog() {
    // One viewer for the application's life: its filters and sort directions stay as the user
    // left them, and it reads the log again on every opening.
    if (!m_logViewerController) {
        m_logViewerController = std::make_unique<LogViewerController>(m_prompter);
        showCentred(m_logViewerController.get());
    } else {
        m_logViewerController->reloadTable();
        m_logViewerController->show();
    }
    m_logViewerController->raise();
    m_logViewerController->activateWindow();
}

void AppDelegate::displayAlertBox(const QString& message) {
    m_prompter.alert(nullptr, message, QString());
}
