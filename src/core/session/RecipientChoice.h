#pragma once

#include <QCoreApplication>
#include <QList>
#include <QString>
#include <optional>

#include "model/Contact.h"
#include "model/NivoProfile.h"

// The rules of choosing the recipients of an encryption, shared by every window that offers the
// choice: finding a person by account name (among the contacts, else at the account server),
// and remembering the choice for the next time.
class RecipientChoice {
    Q_DECLARE_TR_FUNCTIONS(RecipientChoice)

public:
    RecipientChoice() = delete;

    // The preset that keeps the last choice.
    static const QString kLastUsedContacts;

    [[nodiscard]] static QString unableToAddSelf();
    [[nodiscard]] static QString userDoesNotExist();
    [[nodiscard]] static QString proceedWithoutRecipients();
    [[nodiscard]] static QString noRecipientsSelected();
    [[nodiscard]] static QString selectOutputFolder();

    // A typed account name as it is looked up: without surrounding blanks, lower-cased.
    [[nodiscard]] static QString normalized(const QString& typed);
    // Whether `name` (normalized) is the signed-in user, who is always a recipient anyway.
    [[nodiscard]] static bool isSelf(const QString& name);
    // Ascending by account name, ignoring case; equal names keep their order.
    static void sortByNivoId(QList<Contact>& contacts);
    // Row in `contacts` of the contact with this account name, or -1.
    [[nodiscard]] static qsizetype indexOf(const QList<Contact>& contacts, const QString& name);

    // Asks the account server for the person's certificate. Blocks: call it on a worker thread.
    // The searched name is also sent as the requester. StatusText says why nothing came back.
    [[nodiscard]] static NivoProfile lookUp(const QString& name);
    // Stores the person found by lookUp() as a contact of the signed-in user, named by the
    // searched name, and returns it with its row; none when the answer carries no certificate.
    static std::optional<Contact> addLookedUp(const QString& name, const NivoProfile& answer);

    // The contacts of the last choice that still exist, in the order they were chosen.
    [[nodiscard]] static QList<Contact> lastChoice(const QList<Contact>& contacts);
    // Keeps `recipients` as the last choice.
    static void rememberChoice(const QList<Contact>& recipients);
};
