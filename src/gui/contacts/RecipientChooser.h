#pragma once

#include <QList>
#include <QWidget>

#include "account/NivoProfile.h"
#include "contacts/Contact.h"

class NotificationHub;
class Prompter;
class QLineEdit;
class QListWidget;
class QProgressBar;

// A plain recipient choice for an encryption: the user's contacts, any number of them chosen,
// a field that finds a person by NIVO ID (adding an unknown one from the account server), then
// the folder for the encrypted files. Next announces the choice as "selectionCompleted"; closing
// the window chooses nothing.
class RecipientChooser final : public QWidget {
    Q_OBJECT

public:
    RecipientChooser(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);

    void searchNivoID(const QString& text);
    void nextButtonTapped();
    void cancelButtonTapped();

    [[nodiscard]] const QList<Contact>& contactList() const noexcept { return m_contactList; }
    [[nodiscard]] QList<Contact> selectedList() const;

private:
    void reloadContacts(const QList<Contact>& chosen);
    void downloadNivoIDProcess(const QString& text);
    void downloadFinished(const QString& text, const NivoProfile& answer);
    void selectRow(int row);

    NotificationHub& m_hub;
    Prompter& m_prompter;
    QList<Contact> m_contactList;
    QListWidget* m_tableViewAvailable;
    QLineEdit* m_searchField;
    QProgressBar* m_progressIndicator;
    int m_searches = 0;
};
