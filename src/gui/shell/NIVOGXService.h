#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>
#include <QStringList>

class NotificationHub;

// Takes files from a later launch of the application (a file manager's "Open with", a second
// command line) while this instance runs, and passes them on: to the main window when somebody
// is signed in, else to the application to keep until sign-in. Folders and paths where nothing
// exists are left out; a folder left out is posted as foldersSkipped, for the main window to say
// how folders are added.
class NIVOGXService final : public QObject {
    Q_OBJECT

public:
    explicit NIVOGXService(NotificationHub& hub, QObject* parent = nullptr);

    // Where the running instance of this desktop user listens.
    [[nodiscard]] static QString defaultName();
    // Hands the paths to the instance listening under `name`. False when none is listening.
    [[nodiscard]] static bool handOver(const QString& name, const QStringList& paths);

    // Listens under `name`, taking over a name left behind by an instance that has gone.
    [[nodiscard]] bool listen(const QString& name);

    // The entry point for offered paths.
    void addToNIVOGX(const QStringList& offered);
    void sendNotificationToFileController();
    void sendNotificationToAddExternalFiles();

private:
    void accept();

    NotificationHub& m_hub;
    QLocalServer m_server;
    QStringList m_fileList;
};
