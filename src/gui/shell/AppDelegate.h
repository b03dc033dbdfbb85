#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <optional>

#include "shell/ExportFolder.h"

class FileController;
class LoginController;
class LogViewerController;
class NIVOGXService;
class NotificationHub;
class Prompter;
class QAction;
class QMenuBar;
class QUrl;

// The application itself: decides at launch between the sign-in window and the main window,
// keeps files handed to the application until somebody is signed in and then delivers them to
// the main window, and carries the application menu's actions.
class AppDelegate final : public QObject {
    Q_OBJECT

public:
    AppDelegate(NotificationHub& hub, Prompter& prompter, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Where the Services provider listens for files from later launches; set before launching.
    // Empty: it does not listen.
    void setServiceName(const QString& name) { m_serviceName = name; }
    // The installed README, whose section "Using the app" Help opens.
    void setHelpFile(const QString& path) { m_helpFile = path; }
    // Opens a document with the desktop's program for it; false when that fails. By default
    // QDesktopServices::openUrl.
    void setUrlOpener(std::function<bool(const QUrl&)> opener) { m_openUrl = std::move(opener); }
    void applicationDidFinishLaunching();
    void loginCompleted();

    // One file opened with the application. It replaces a single file not yet delivered.
    bool application(const QString& path);
    // Several files opened with the application, appended to those waiting.
    void application(const QStringList& paths);
    void notifyExternalFile();
    void notifyExternalFileArray();
    // Files offered while nobody is signed in; delivered at sign-in.
    void addToExternalFiles(const QStringList& paths);

    void exportContacts();
    void exportNivoProfile();
    void importContacts();
    void viewLog();
    void about();
    void help();
    void displayAlertBox(const QString& message);

    // The application menu, with the entries that need a signed-in user, and the main window's
    // own when it is given.
    void installMenu(QMenuBar* menuBar, const FileController* window = nullptr) const;
    // The About box's text below its title.
    [[nodiscard]] static QString aboutText();

    [[nodiscard]] LoginController* loginController() const { return m_loginController.get(); }
    [[nodiscard]] FileController* fileController() const { return m_fileController.get(); }
    [[nodiscard]] LogViewerController* logViewerController() const {
        return m_logViewerController.get();
    }
    [[nodiscard]] NIVOGXService* nivoGXService() const noexcept { return m_nivoGXService; }
    [[nodiscard]] QList<QAction*> userMenuItems() const;
    [[nodiscard]] const QString& externalFile() const noexcept { return m_externalFile; }
    [[nodiscard]] QStringList externalFileArray() const {
        return m_externalFileArray.value_or(QStringList());
    }

protected:
    // Document-open events sent to the application object.
    bool eventFilter(QObject* watched, QEvent* event) override;

Q_SIGNALS:
    // A window asked to end the application.
    void terminateRequested();

private:
    void showMainWindow();
    void deliverWaitingFiles();
    void setUserMenuItemsEnabled(bool enabled);

    NotificationHub& m_hub;
    Prompter& m_prompter;
    std::unique_ptr<LoginController> m_loginController;
    std::unique_ptr<FileController> m_fileController;
    std::unique_ptr<LogViewerController> m_logViewerController;
    NIVOGXService* m_nivoGXService = nullptr;
    QString m_serviceName;
    QString m_helpFile;
    std::function<bool(const QUrl&)> m_openUrl;
    QString m_externalFile;
    std::optional<QStringList> m_externalFileArray;
    // A folder was offered, and left out, while nobody was signed in: the main window says so.
    bool m_foldersSkipped = false;
    QAction* m_exportMenuItem;
    QAction* m_importMenuItem;
    QAction* m_exportProfileMenuItem;
    QAction* m_viewLogItem;
    QAction* m_quitItem;
    QAction* m_aboutItem;
    QAction* m_helpItem;
    ExportFolder m_contactsExportFolder;
    ExportFolder m_profileExportFolder;
};
