#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QStringList>
#include <chrono>
#include <functional>

#include "model/Contact.h"

class ContactController;
class CustomFileTableView;
class FileListModel;
class NotificationHub;
class ProcessController;
class ProcessWindow;
class Prompter;
class QAction;
class QLabel;
class ResultsPanel;
class RunStatus;

// The main window of a signed-in user: the list of files with their statuses, and the buttons
// that add files, encrypt or decrypt them one after another, export the profile and sign out.
// The queue and its rules are the FileListModel's; this window asks the questions and shows a
// small window for each file being processed.
class FileController final : public QMainWindow {
    Q_OBJECT

public:
    FileController(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);
    ~FileController() override;

    void FileButtonTapped();
    void FolderButtonTapped();
    void EncryptButtonTapped();
    void DecryptButtonTapped();
    void LogoutButtonTapped();
    void handleExternalFile(const QString& result);
    void handleExternalFileArray(const QStringList& result);
    void handleRecipientSelectionComplete(const QList<Contact>& result);

    [[nodiscard]] FileListModel& model() const noexcept { return *m_model; }
    // The listed paths, in display order.
    [[nodiscard]] QStringList fileList() const;
    [[nodiscard]] CustomFileTableView* fileTableView() const noexcept { return m_fileTableView; }
    // The window of the file being processed, or of the recipient choice; null when none is open.
    [[nodiscard]] ProcessWindow* processWindow() const;
    [[nodiscard]] ContactController* contactController() const;
    [[nodiscard]] ResultsPanel* resultsPanel() const noexcept { return m_resultsPanel; }
    // The window's own actions, for the application menu: Add Files, Add Folder, Encrypt,
    // Decrypt.
    [[nodiscard]] QList<QAction*> fileActions() const;
    // The actions of the list's context menu, for the rows selected when it opens.
    [[nodiscard]] QList<QAction*> contextActions() const;

    // See RunStatus::setRunEndNotifier.
    void setRunEndNotifier(std::function<void(const QString& summary)> notifier,
                           std::chrono::milliseconds minimum);

Q_SIGNALS:
    // Sign-out or a closed window: the application should quit.
    void terminateRequested();
    // The Export Profile button: the application's menu action does the work.
    void exportProfileRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void windowDidLoad();
    void showContextMenu(const QPoint& position);
    void removeSelected();
    void showSelectedInFolder();
    // Encrypt or Decrypt for the selected rows only: the other unmarked rows sit this run out.
    void processSelected(bool toEncrypt);
    void filesDropped(const QStringList& paths);
    void showFoldersSkipped();
    QAction* addToolBarAction(const char* text, const char* name, const QString& image,
                              void (FileController::*slot)());
    void processStarting(ProcessController* controller, int row);
    void askToClearList(const QString& informativeText);
    [[nodiscard]] qsizetype pendingFiles() const;
    void displayAlertBox(const QString& message);
    void comeToFront();

    NotificationHub& m_hub;
    Prompter& m_prompter;
    FileListModel* m_model;
    CustomFileTableView* m_fileTableView;
    ResultsPanel* m_resultsPanel;
    QLabel* m_userToolBarItem;
    QAction* m_addFolderAction = nullptr;
    QAction* m_removeAction = nullptr;
    QAction* m_showInFolderAction = nullptr;
    QAction* m_encryptSelectedAction = nullptr;
    QAction* m_decryptSelectedAction = nullptr;
    RunStatus* m_runStatus;
    bool m_markSelectedOnly = false;
    QPointer<ProcessWindow> m_processWindow;
    QPointer<ContactController> m_contactController;
    bool m_terminating = false;
};
