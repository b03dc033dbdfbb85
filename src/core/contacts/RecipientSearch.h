#pragma once

#include <QCoreApplication>
#include <QList>
#include <QString>
#include <optional>

#include "account/AccountAlert.h"
#include "contacts/Contact.h"

// Finding the people to encrypt for, shared by every front end: the search by NIVO ID, which
// fetches an unknown person's certificate from the account server and keeps them as a contact,
// and the remembered choice of recipients. Works on the signed-in user's contact database, so it
// belongs to the main thread; only the server request blocks.
class RecipientSearch {
    Q_DECLARE_TR_FUNCTIONS(RecipientSearch)

public:
    RecipientSearch() = delete;

    [[nodiscard]] static QString unableToAddSelf();
    [[nodiscard]] static QString userDoesNotExist();
    // The one preset the program writes: the recipients chosen last.
    [[nodiscard]] static QString lastUsedPresetName();

    // A typed NIVO ID as it is searched: without surrounding blanks and line breaks, lower-cased.
    [[nodiscard]] static QString normalised(const QString& typed);

    struct Result {
        std::optional<Contact> contact;  // the contact found or added
        std::optional<AccountAlert> alert;
        bool added = false;  // the contact was fetched from the server just now
    };
    // The contact with this NIVO ID; an unknown one is looked up on the account server and added
    // to the contacts. Refuses the signed-in user's own name. Blocks while the server answers.
    [[nodiscard]] static Result find(const QString& typedNivoId);

    // Keeps the recipients, in order, as the remembered choice, replacing the previous one.
    static void rememberSelection(const QList<Contact>& recipients);
    // The remembered choice as it stands in the contacts now: members deleted since are left out.
    [[nodiscard]] static QList<Contact> rememberedSelection();
};
