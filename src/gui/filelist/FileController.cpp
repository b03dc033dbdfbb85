#include "filelist/FileController.h"

#include <QAction>
#include <QCloseEvent>
#include <QLabel>
#include <QListWidget>
#include <QSizePolicy>
#include <QToolBar>

#include "shell/NotificationHub.h"
#include "shell/Prompter.h"
#include "storage/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kTitle = QT_TRANSLATE_NOOP("FileController", "NIVO-GX");
const char* const kToolBar = QT_TRANSLATE_NOOP("FileController", "Main");
const char* const kSignOut = QT_TRANSLATE_NOOP("FileController", "Sign Out");
const char* const kSignedInAs = QT_TRANSLATE_NOOP("FileController", "Signed in as %1");
const char* const kAskLogout = QT_TRANSLATE_NOOP("FileController", "Do you wish to logout?");

}  // namespace

FileController::FileController(NotificationHub& hub, Prompter& prompter, QWidget* parent)
    : QMainWindow(parent),
      m_hub(hub),
      m_prompter(prompter),
      m_userToolBarItem(new QLabel(this)),
      m_fileTableView(new QListWidget(this)) {
    setObjectName(u"FileController"_s);
    setWindowTitle(tr(kTitle));
    m_userToolBarItem->setObjectName(u"userToolBarItem"_s);
    m_fileTableView->setObjectName(u"fileTableView"_s);
    m_fileTableView->setAlternatingRowColors(true);
    setCentralWidget(m_fileTableView);

    QToolBar* toolBar = addToolBar(tr(kToolBar));
    toolBar->setObjectName(u"toolBar"_s);
    toolBar->setMovable(false);
    toolBar->setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto* spacer = new QWidget(toolBar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_userToolBarItem->setContentsMargins(8, 0, 8, 0);
    QFont userFont = m_userToolBarItem->font();
    userFont.setBold(true);
    m_userToolBarItem->setFont(userFont);
    toolBar->addWidget(spacer);
    toolBar->addWidget(m_userToolBarItem);
    QAction* signOut = toolBar->addAction(tr(kSignOut));
    signOut->setObjectName(u"logoutAction"_s);
    connect(signOut, &QAction::triggered, this, &FileController::LogoutButtonTapped);
    resize(720, 460);
    windowDidLoad();
}

void FileController::windowDidLoad() {
    connect(&m_hub, &NotificationHub::handleExternalFile, this,
            &FileController::handleExternalFile);
    connect(&m_hub, &NotificationHub::handleExternalFileArray, this,
            &FileController::handleExternalFileArray);
    const QString userName = NivoGXUtil::getNivoUsername();
    m_userToolBarItem->setText(userName);
    m_userToolBarItem->setToolTip(tr(kSignedInAs).arg(userName));
}

void FileController::handleExternalFile(const QString& result) {
    comeToFront();
    addPath(result);
}

void FileController::handleExternalFileArray(const QStringList& result) {
    comeToFront();
    for (const QString& path : result) {
        addPath(path);
    }
}

void FileController::addPath(const QString& path) {
    if (m_fileList.contains(path, Qt::CaseSensitive)) {
        return;
    }
    m_fileList.append(path);
    m_fileTableView->addItem(path);
}

void FileController::comeToFront() {
    if (isMinimized()) {
        showNormal();
    }
    raise();
    activateWindow();
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
