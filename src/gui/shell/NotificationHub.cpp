#include "shell/NotificationHub.h"

#include <QCoreApplication>
#include <QThread>

NotificationHub::NotificationHub(QObject* parent) : QObject(parent) {}

// Receivers touch windows and the process-wide user state, which only the GUI thread may do;
// a post from a worker would run them on the worker.
void NotificationHub::assertGuiThread() const {
    Q_ASSERT(QThread::currentThread() == thread());
}

void NotificationHub::postLoginCompleted() {
    assertGuiThread();
    Q_EMIT loginCompleted();
}

void NotificationHub::postRegistrationCompleted(const QString& username, const QString& password) {
    assertGuiThread();
    Q_EMIT registrationCompleted(username, password);
}

void NotificationHub::postHandleExternalFile(const QString& result) {
    assertGuiThread();
    Q_EMIT handleExternalFile(result);
}

void NotificationHub::postHandleExternalFileArray(const QStringList& result) {
    assertGuiThread();
    Q_EMIT handleExternalFileArray(result);
}

void NotificationHub::postAddToExternalFile(const QStringList& result) {
    assertGuiThread();
    Q_EMIT addToExternalFile(result);
}

void NotificationHub::postSelectionCompleted(const QList<Contact>& result) {
    assertGuiThread();
    Q_EMIT selectionCompleted(result);
}

void NotificationHub::postProcessingCompleted(const QString& processResult) {
    assertGuiThread();
    Q_EMIT processingCompleted(processResult);
}

void NotificationHub::postContactImportCompleted() {
    assertGuiThread();
    Q_EMIT contactImportCompleted();
}

void NotificationHub::postFoldersSkipped() {
    assertGuiThread();
    Q_EMIT foldersSkipped();
}
