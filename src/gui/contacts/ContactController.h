#pragma once

#include <QWidget>

#include "model/NivoProfile.h"
#include "session/RecipientSelection.h"

class NotificationHub;
class Prompter;
class QLabel;
class QLineEdit;
class QProgressBar;
class QTableView;

// The recipient window of an encryption: all contacts on the left, the chosen recipients on the
// right (pre-filled with the last choice), Add between them, a Remove under each, and a search
// field that finds a contact by NIVO ID or fetches an unknown person from the account server.
// Next asks for the output folder and announces the choice as "selectionCompleted"; Cancel or
// closing the window chooses nothing. The rules live in RecipientSelection.
class ContactController final : public QWidget {
    Q_OBJECT

public:
    ContactController(NotificationHub& hub, Prompter& prompter, QWidget* parent = nullptr);
    ~ContactController() override;

    void addButtonTapped();
    void removeAvailableButtonTapped();
    void removeSelectedButtonTapped();
    void searchNivoID(const QString& text);
    void nextButtonTapped();
    void cancelButtonTapped();

    [[nodiscard]] const RecipientSelection& selection() const noexcept { return m_selection; }
    [[nodiscard]] const QList<Contact>& contactList() const noexcept {
        return m_selection.contactList();
    }
    [[nodiscard]] const QList<Contact>& selectedList() const noexcept {
        return m_selection.selectedList();
    }

private:
    // Shows the certificate of the contact last clicked, for comparing out of band.
    void showDetails(const Contact& contact);
    void clickInAvailableTable();
    void clickInSelectedTable();
    void handleImportComplete();
    void downloadNivoIDProcess(const QString& text);
    void downloadFinished(const QString& text, const NivoProfile& answer);
    void selectAvailableRow(qsizetype row);
    [[nodiscard]] static qsizetype selectedRow(const QTableView* table);

    NotificationHub& m_hub;
    Prompter& m_prompter;
    RecipientSelection m_selection;
    QTableView* m_tableViewAvailable;
    QTableView* m_tableViewSelected;
    QLineEdit* m_searchField;
    QProgressBar* m_progressIndicator;
    QLabel* m_contactDetails;
    int m_searches = 0;
};
