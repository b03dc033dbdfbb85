#include "filelist/FileController.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QSizePolicy>
#include <QSplitter>
#include <QStatusBar>
#include <QToolBar>
#include <QUrl>
#include <algorithm>

#include "contacts/ContactController.h"
#include "filelist/CustomFileTableView.h"
#include "filelist/ResultsPanel.h"
#include "filelist/RunStatus.h"
#include "log/VisibleText.h"
#include "processing/FileListModel.h"
#include "processing/ProcessController.h"
#include "processing/ProcessWindow.h"
#include "session/NivoGXUtil.h"
#include "shell/IconSet.h"
#include "shell/NotificationHub.h"
#include "shell/Prompter.h"
#include "shell/StatusColumn.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("FileController", "NIVO-GX");
const char* const kToolBar = QT_TRANSLATE_NOOP("FileController", "Main");
const char* const kAddFiles = QT_TRANSLATE_NOOP("FileController", "Add Files...");
const char* const kEncrypt = QT_TRANSLATE_NOOP("FileController", "Encrypt");
const char* const kDecrypt = QT_TRANSLATE_NOOP("FileController", "Decrypt");
const char* const kAddFolder = QT_TRANSLATE_NOOP("FileController", "Add Folder...");
const char* const kRemove = QT_TRANSLATE_NOOP("FileController", "Remove");
const char* const kShowInFolder = QT_TRANSLATE_NOOP("FileController", "Show in Folder");
const char* const kEncryptSelected = QT_TRANSLATE_NOOP("FileController", "Encrypt These");
const char* const kDecryptSelected = QT_TRANSLATE_NOOP("FileController", "Decrypt These");
const char* const kSelectFolder =
    QT_TRANSLATE_NOOP("FileController", "Select a folder to add with everything in it");
const char* const kManyFiles = QT_TRANSLATE_NOOP("FileController", "Add %n files?");
const char* const kManyFilesDetail = QT_TRANSLATE_NOOP(
    "FileController", "The folder %1 holds %2 files, counting those in its subfolders.");
const char* const kEmptyFolder =
    QT_TRANSLATE_NOOP("FileController", "The folder %1 holds no files to add.");
const char* const kFoldersSkipped =
    QT_TRANSLATE_NOOP("FileController", "Folders are added with Add Folder…");
const char* const kExportProfile = QT_TRANSLATE_NOOP("FileController", "Export Profile...");
const char* const kSignOut = QT_TRANSLATE_NOOP("FileController", "Sign Out");
const char* const kSignedInAs = QT_TRANSLATE_NOOP("FileController", "Signed in as %1");
const char* const kAskLogout = QT_TRANSLATE_NOOP("FileController", "Do you wish to logout?");
const char* const kSelectFiles =
    QT_TRANSLATE_NOOP("FileController", "Select files for encryption/decryption");
const char* const kSelectDecryptFolder =
    QT_TRANSLATE_NOOP("FileController", "Select folder to store decrypted file");

constexpr int kFileColumnWidth = 420;
constexpr qsizetype kManyFilesLimit = 1000;
constexpr int kProcessWindowMargin = 48;

}  // namespace

FileController::FileController(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    : QMainWindow(parent),
      m_hub(hub),
      m_prompter(prompter),
      m_model(new FileListModel(NivoGXUtil::runEnvironment(), this)),
      m_fileTableView(new CustomFileTableView(this)),
      m_resultsPanel(new ResultsPanel(this)),
      m_userToolBarItem(new QLabel(this)),
      m_runStatus(new RunStatus(*this, [this] { return pendingFiles(); })) {
    setObjectName(u"FileController"_s);
    setWindowTitle(tr(kTitle));
    m_userToolBarItem->setObjectName(u"userToolBarItem"_s);
    m_fileTableView->setObjectName(u"fileTableView"_s);
    m_fileTableView->setModel(m_model);
    QHeaderView* header = m_fileTableView->horizontalHeader();
    header->setSectionResizeMode(FileListModel::FileColumn, QHeaderView::Interactive);
    header->resizeSection(FileListModel::FileColumn, kFileColumnWidth);
    StatusColumn::install(m_fileTableView, FileListModel::StatusColumn);
    // The list above, what became of the files below.
    auto* splitter = new QSplitter(Qt::Vertical, this);
    splitter->setObjectName(u"listAndResults"_s);
    splitter->addWidget(m_fileTableView);
    splitter->addWidget(m_resultsPanel);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setChildrenCollapsible(false);
    setCentralWidget(splitter);

    QToolBar* toolBar = addToolBar(tr(kToolBar));
    toolBar->setObjectName(u"toolBar"_s);
    toolBar->setMovable(false);
    toolBar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolBar->setIconSize(QSize(32, 32));
    addToolBarAction(kAddFiles, "addFilesAction", IconSet::kAddFiles,
                     &FileController::FileButtonTapped)
        ->setShortcut(QKeySequence::Open);
    m_addFolderAction = new QAction(tr(kAddFolder), this);
    m_addFolderAction->setObjectName(u"addFolderAction"_s);
    m_addFolderAction->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
    connect(m_addFolderAction, &QAction::triggered, this, &FileController::FolderButtonTapped);
    addAction(m_addFolderAction);
    toolBar->addSeparator();
    addToolBarAction(kEncrypt, "encryptAction", IconSet::kEncrypt,
                     &FileController::EncryptButtonTapped)
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    addToolBarAction(kDecrypt, "decryptAction", IconSet::kDecrypt,
                     &FileController::DecryptButtonTapped)
        ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    toolBar->addSeparator();
    addToolBarAction(kExportProfile, "exportProfileAction", IconSet::kExportProfile,
                     &FileController::exportProfileRequested);
    auto* spacer = new QWidget(toolBar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    toolBar->addWidget(spacer);
    m_userToolBarItem->setContentsMargins(8, 0, 8, 0);
    QFont userFont = m_userToolBarItem->font();
    userFont.setBold(true);
    m_userToolBarItem->setFont(userFont);
    toolBar->addWidget(m_userToolBarItem);
    addToolBarAction(kSignOut, "logoutAction", IconSet::kSignOut,
                     &FileController::LogoutButtonTapped);

    m_removeAction = new QAction(tr(kRemove), this);
    m_removeAction->setObjectName(u"removeAction"_s);
    connect(m_removeAction, &QAction::triggered, this, &FileController::removeSelected);
    m_showInFolderAction = new QAction(tr(kShowInFolder), this);
    m_showInFolderAction->setObjectName(u"showSelectedInFolderAction"_s);
    connect(m_showInFolderAction, &QAction::triggered, this, &FileController::showSelectedInFolder);
    m_encryptSelectedAction = new QAction(tr(kEncryptSelected), this);
    m_encryptSelectedAction->setObjectName(u"encryptSelectedAction"_s);
    connect(m_encryptSelectedAction, &QAction::triggered, this, [this] { processSelected(true); });
    m_decryptSelectedAction = new QAction(tr(kDecryptSelected), this);
    m_decryptSelectedAction->setObjectName(u"decryptSelectedAction"_s);
    connect(m_decryptSelectedAction, &QAction::triggered, this, [this] { processSelected(false); });
    m_fileTableView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_fileTableView, &QWidget::customContextMenuRequested, this,
            &FileController::showContextMenu);
    resize(900, 600);
    windowDidLoad();
}

// The windows of a run belong to this one and go with it.
FileController::~FileController() = default;

QAction* FileController::addToolBarAction(const char* text, const char* name, const QString& image,
                                          void (FileController::*slot)()) {
    auto* toolBar = findChild<QToolBar*>(u"toolBar"_s);
    QAction* action = toolBar->addAction(IconSet::named(image), tr(text));
    action->setObjectName(QString::fromLatin1(name));
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void FileController::windowDidLoad() {
    connect(&m_hub, &NotificationHub::handleExternalFile, this,
            &FileController::handleExternalFile);
    connect(&m_hub, &NotificationHub::handleExternalFileArray, this,
            &FileController::handleExternalFileArray);
    connect(&m_hub, &NotificationHub::foldersSkipped, this, &FileController::showFoldersSkipped);
    connect(&m_hub, &NotificationHub::selectionCompleted, this,
            &FileController::handleRecipientSelectionComplete);
    connect(m_model, &FileListModel::processStarting, this, &FileController::processStarting);
    connect(m_model, &FileListModel::processingChanged, m_runStatus, &RunStatus::processingChanged);
    connect(m_fileTableView, &CustomFileTableView::filesDropped, this,
            &FileController::filesDropped);
    m_fileTableView->setDeleteKeyHandler(
        [this](const QList<int>& rows) { return m_model->deleteRows(rows) > 0; });
    const QString userName = NivoGXUtil::getNivoUsername();
    m_userToolBarItem->setText(userName);
    m_userToolBarItem->setToolTip(tr(kSignedInAs).arg(userName));
}

QList<QAction*> FileController::fileActions() const {
    QList<QAction*> actions;
    for (const char* name :
         {"addFilesAction", "addFolderAction", "encryptAction", "decryptAction"}) {
        actions.append(findChild<QAction*>(QString::fromLatin1(name)));
    }
    return actions;
}

QList<QAction*> FileController::contextActions() const {
    return {m_removeAction, m_showInFolderAction, m_encryptSelectedAction, m_decryptSelectedAction};
}

void FileController::showContextMenu(const QPoint& position) {
    const QModelIndex under = m_fileTableView->indexAt(position);
    if (!under.isValid()) {
        return;
    }
    if (!m_fileTableView->selectionModel()->isRowSelected(under.row(), {})) {
        m_fileTableView->selectRow(under.row());
    }
    QMenu menu(this);
    menu.addAction(m_encryptSelectedAction);
    menu.addAction(m_decryptSelectedAction);
    menu.addSeparator();
    menu.addAction(m_showInFolderAction);
    menu.addSeparator();
    menu.addAction(m_removeAction);
    menu.exec(m_fileTableView->viewport()->mapToGlobal(position));
}

void FileController::removeSelected() {
    (void)m_model->deleteRows(m_fileTableView->selectedRows());
}

void FileController::showSelectedInFolder() {
    const QList<int> rows = m_fileTableView->selectedRows();
    if (!rows.isEmpty()) {
        const FileDetails& entry = m_model->fileList().at(rows.constFirst());
        QDesktopServices::openUrl(QUrl::fromLocalFile(entry.getFolder()));
    }
}

void FileController::processSelected(bool toEncrypt) {
    QStringList paths;
    for (const int row : m_fileTableView->selectedRows()) {
        paths.append(m_model->fileList().at(row).filePath);
    }
    if (paths.isEmpty()) {
        return;
    }
    m_markSelectedOnly = true;
    m_model->setMarkOnly(paths);
    if (toEncrypt) {
        EncryptButtonTapped();
    } else {
        DecryptButtonTapped();
    }
    m_markSelectedOnly = false;
}

void FileController::filesDropped(const QStringList& paths) {
    if (std::any_of(paths.cbegin(), paths.cend(),
                    [](const QString& path) { return QFileInfo(path).isDir(); })) {
        showFoldersSkipped();
    }
    (void)m_model->addDroppedFiles(paths);
}

// Folders dropped or handed over by a later launch are not added, but not without a word.
void FileController::showFoldersSkipped() {
    statusBar()->showMessage(tr(kFoldersSkipped), RunStatus::kStatusMessageMs);
}

void FileController::setRunEndNotifier(RunStatus::RunEndNotifier notifier,
                                       std::chrono::milliseconds minimum) {
    m_runStatus->setRunEndNotifier(std::move(notifier), minimum);
}

qsizetype FileController::pendingFiles() const {
    return std::count_if(m_model->fileList().cbegin(), m_model->fileList().cend(),
                         [](const FileDetails& entry) {
                             return entry.status == FileListModel::kPendingEncryption ||
                                    entry.status == FileListModel::kPendingDecryption;
                         });
}

QStringList FileController::fileList() const {
    QStringList paths;
    for (const FileDetails& entry : m_model->fileList()) {
        paths.append(entry.filePath);
    }
    return paths;
}

ProcessWindow* FileController::processWindow() const {
    return m_processWindow;
}

ContactController* FileController::contactController() const {
    return m_contactController;
}

void FileController::FileButtonTapped() {
    Prompter::OpenPanel panel;
    panel.message = tr(kSelectFiles);
    panel.startFolder = NivoGXUtil::getLastInputFolder();
    panel.multipleSelection = true;
    const QStringList chosen = m_prompter.open(this, panel);
    if (chosen.isEmpty()) {
        return;
    }
    m_model->addFiles(chosen);
    NivoGXUtil::saveSettings(QString(), QString(), QFileInfo(chosen.constLast()).path(), QString(),
                             QString());
}

void FileController::FolderButtonTapped() {
    Prompter::OpenPanel panel;
    panel.message = tr(kSelectFolder);
    panel.startFolder = NivoGXUtil::getLastInputFolder();
    panel.chooseFolders = true;
    const QStringList chosen = m_prompter.open(this, panel);
    if (chosen.isEmpty()) {
        return;
    }
    const QString folder = chosen.constFirst();
    const QStringList files = FileListModel::filesInFolder(folder);
    const QString shownFolder = VisibleText::of(folder);
    if (files.isEmpty()) {
        displayAlertBox(tr(kEmptyFolder).arg(shownFolder));
        return;
    }
    if (files.size() > kManyFilesLimit &&
        !m_prompter.ask(this, tr(kManyFiles, nullptr, int(files.size())),
                        tr(kManyFilesDetail).arg(shownFolder).arg(files.size()))) {
        return;
    }
    m_model->addFolderFiles(folder, files);
    NivoGXUtil::saveSettings(QString(), QString(), QFileInfo(folder).path(), QString(), QString());
}

void FileController::EncryptButtonTapped() {
    if (!m_markSelectedOnly) {
        m_model->setMarkOnly({});
    }
    switch (m_model->encryptRequested()) {
        case FileListModel::Request::NoFiles:
            displayAlertBox(FileListModel::kNoFilesToEncrypt);
            return;
        case FileListModel::Request::AskToClearList:
            askToClearList(FileListModel::kNoFilesToEncrypt);
            return;
        case FileListModel::Request::ChooseRecipients:
            // One choice at a time: a second Encrypt starts it afresh.
            if (m_contactController) {
                m_contactController->close();
            }
            m_contactController = new ContactController(m_hub, m_prompter, this);
            m_contactController->move(frameGeometry().center() -
                                      m_contactController->rect().center());
            m_contactController->show();
            m_contactController->raise();
            m_contactController->activateWindow();
            return;
        case FileListModel::Request::JoinedRun:
        case FileListModel::Request::ChooseOutputFolder:
            return;
    }
}

void FileController::handleRecipientSelectionComplete(const QList<Contact>& result) {
    m_model->handleRecipientSelectionComplete(result);
}

void FileController::DecryptButtonTapped() {
    if (!m_markSelectedOnly) {
        m_model->setMarkOnly({});
    }
    switch (m_model->decryptRequested()) {
        case FileListModel::Request::NoFiles:
            displayAlertBox(FileListModel::kNoFilesToDecrypt);
            return;
        case FileListModel::Request::AskToClearList:
            askToClearList(FileListModel::kNoFilesToDecrypt);
            return;
        case FileListModel::Request::ChooseOutputFolder: {
            Prompter::OpenPanel panel;
            panel.message = tr(kSelectDecryptFolder);
            panel.startFolder = NivoGXUtil::getLastOutputDecryptFolder();
            panel.chooseFolders = true;
            panel.canCreateFolders = true;
            const QStringList chosen = m_prompter.open(this, panel);
            if (chosen.isEmpty()) {
                return;
            }
            NivoGXUtil::saveSettings(QString(), QString(), QString(), QString(),
                                     chosen.constFirst());
            m_model->startDecryption();
            return;
        }
        case FileListModel::Request::JoinedRun:
        case FileListModel::Request::ChooseRecipients:
            return;
    }
}

void FileController::askToClearList(const QString& informativeText) {
    if (m_prompter.ask(this, FileListModel::kRemoveAllFiles, informativeText)) {
        m_model->clear();
    }
}

void FileController::processStarting(ProcessController* controller, int row) {
    m_runStatus->fileStarting(controller, m_model->fileList().at(row).status);
    m_resultsPanel->follow(controller);
    // A cancelled run's window has closed already; any other is replaced by the next file's.
    if (m_processWindow) {
        m_processWindow->close();
    }
    m_processWindow = new ProcessWindow(controller, this);
    m_processWindow->adjustSize();
    // Low over the list, so that the first rows, where a run starts, stay in sight.
    const QRect frame = frameGeometry();
    m_processWindow->move(frame.center().x() - m_processWindow->width() / 2,
                          frame.bottom() - m_processWindow->height() - kProcessWindowMargin);
    m_processWindow->show();
}

void FileController::handleExternalFile(const QString& result) {
    comeToFront();
    m_model->addFiles({result});
}

void FileController::handleExternalFileArray(const QStringList& result) {
    comeToFront();
    m_model->addFiles(result);
}

void FileController::comeToFront() {
    if (isMinimized()) {
        showNormal();
    }
    raise();
    activateWindow();
    // The windows of a run stay in sight above this one, also where no window manager keeps
    // them there.
    for (QWidget* floating : {static_cast<QWidget*>(m_contactController.data()),
                              static_cast<QWidget*>(m_processWindow.data())}) {
        if (floating != nullptr && floating->isVisible()) {
            floating->raise();
        }
    }
}

void FileController::displayAlertBox(const QString& message) {
    m_prompter.alert(this, message, QString());
}

void FileController::LogoutButtonTapped() {
    NivoGXUtil::logout();
    m_terminating = true;
    Q_EMIT terminateRequested();
}

void FileController::closeEvent(QCloseEvent* event) {
    // Quitting closes every window; that close is not the user's and asks nothing.
    if (!m_terminating) {
        if (m_prompter.ask(this, tr(kAskLogout), QString())) {
            NivoGXUtil::logout();
        }
        m_terminating = true;
        Q_EMIT terminateRequested();
    }
    event->accept();
}
