#pragma once

#include <QMainWindow>
#include <QStringList>

class NotificationHub;
class Prompter;
class QLabel;
class QListWidget;

// The main window of a signed-in user. For now it lists the files handed to the application and
// offers sign-out; the queue table and its processing come with the processing run.
class FileController final : public QMainWindow {
    Q_OBJECT

public:
    FileController(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);

    void LogoutButtonTapped();
    void handleExternalFile(const QString& result);
    void handleExternalFileArray(const QStringList& result);

    [[nodiscard]] const QStringList& fileList() const noexcept { return m_fileList; }

Q_SIGNALS:
    // Sign-out or a closed window: the application should quit.
    void terminateRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void windowDidLoad();
    // Adds a path unless the list already holds exactly that path.
    void addPath(const QString& path);
    void comeToFront();

    NotificationHub& m_hub;
    Prompter& m_prompter;
    QLabel* m_userToolBarItem;
    QListWidget* m_fileTableView;
    QStringList m_fileList;
    bool m_terminating = false;
};
