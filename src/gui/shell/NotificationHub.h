#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include "model/Contact.h"

// The application's notifications between windows: one signal per notification, posted and
// received on the GUI thread. Receivers connect directly, so a post returns only after every
// receiver has run, and a receiver that wants to keep a payload takes its own copy.
class NotificationHub final : public QObject {
    Q_OBJECT

public:
    explicit NotificationHub(QObject* parent = nullptr);

    void postLoginCompleted();
    void postRegistrationCompleted(const QString& username, const QString& password);
    void postHandleExternalFile(const QString& result);
    void postHandleExternalFileArray(const QStringList& result);
    void postAddToExternalFile(const QStringList& result);
    void postSelectionCompleted(const QList<Contact>& result);
    void postProcessingCompleted(const QString& processResult);
    void postContactImportCompleted();
    // Folders were offered with files and left out: they are added with Add Folder only.
    void postFoldersSkipped();

Q_SIGNALS:
    void loginCompleted();
    void registrationCompleted(const QString& username, const QString& password);
    void handleExternalFile(const QString& result);
    void handleExternalFileArray(const QStringList& result);
    void addToExternalFile(const QStringList& result);
    void selectionCompleted(const QList<Contact>& result);
    void processingCompleted(const QString& processResult);
    void contactImportCompleted();
    void foldersSkipped();

private:
    void assertGuiThread() const;
};
