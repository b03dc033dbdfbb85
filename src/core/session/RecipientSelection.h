#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <optional>

#include "model/Contact.h"
#include "model/NivoProfile.h"

class ContactTableModel;

// The state of the recipient window: every contact ("available"), the chosen recipients
// ("selected", pre-filled with the last choice), and the row last clicked in each table. Each
// operation changes the lists and reloads the table models it touched; the window only forwards
// clicks and buttons and asks the questions.
//
// Removing from the available table deletes the contact for good and works on the row last
// clicked, which starts at 0 and is not cleared when the lists change: Remove before any click
// deletes the first contact, and a second Remove deletes the one that moved into the row.
class RecipientSelection final : public QObject {
    Q_OBJECT

public:
    // Column identifiers of the available and the selected table.
    static const QString kAvailableColumn;
    static const QString kSelectedColumn;

    // Loads the contacts of the signed-in user and pre-selects those of the first preset.
    explicit RecipientSelection(QObject* parent = nullptr);
    ~RecipientSelection() override;

    [[nodiscard]] ContactTableModel* availableModel() const noexcept { return m_availableModel; }
    [[nodiscard]] ContactTableModel* selectedModel() const noexcept { return m_selectedModel; }
    [[nodiscard]] const QList<Contact>& contactList() const noexcept { return m_contactList; }
    [[nodiscard]] const QList<Contact>& selectedList() const noexcept { return m_selectedList; }
    [[nodiscard]] qsizetype aRowSelected() const noexcept { return m_aRowSelected; }
    [[nodiscard]] qsizetype sRowSelected() const noexcept { return m_sRowSelected; }

    // A click in a table: remembers its selected row when that is a row of the list.
    void clickInAvailableTable(qsizetype selectedRow);
    void clickInSelectedTable(qsizetype selectedRow);

    // Chooses the contact in this row of the available table, once. False when nothing changed.
    bool addContact(qsizetype availableRow);
    // Deletes the contact of the last clicked available row from the database (and so from
    // every preset) and from both tables.
    void handleDeleteAEntry();
    // Leaves out the recipient of the last clicked selected row; the contact stays.
    void handleDeleteSEntry();
    // Reads the contacts again after an import; the choice stays as it is.
    void handleImportComplete();

    struct Search {
        enum class Outcome {
            Self,      // the signed-in user: refuse
            Existing,  // a contact: select `row` of the available table
            LookUp,    // unknown here: ask the account server for `name`
        };
        Outcome outcome;
        QString name;  // the typed text as it is looked up
        qsizetype row = -1;
    };
    [[nodiscard]] Search searchNivoID(const QString& typed) const;
    // Keeps the person the account server found as a contact (not chosen) and returns its row
    // in the available table; none when the answer names nobody.
    std::optional<qsizetype> downloadFinished(const QString& name, const NivoProfile& answer);

    // The recipients in order, kept as the last choice for the next opening.
    QList<Contact> completeSelection() const;

private:
    QList<Contact> m_contactList;
    QList<Contact> m_selectedList;
    qsizetype m_aRowSelected = 0;
    qsizetype m_sRowSelected = 0;
    ContactTableModel* m_availableModel;
    ContactTableModel* m_selectedModel;
};
