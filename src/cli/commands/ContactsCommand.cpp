#include "ContactsCommand.h"

#include <QJsonArray>
#include <QList>
#include <algorithm>

#include "CliAccount.h"
#include "CliCertificate.h"
#include "CliMessages.h"
#include "contacts/ContactDB.h"
#include "crypto/CertificateTrust.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"
#include "session/UserDataExport.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kListAction = u"list"_s;
const QString kShowAction = u"show"_s;
const QString kAddAction = u"add"_s;
const QString kRemoveAction = u"remove"_s;
const QString kExportAction = u"export"_s;
const QString kImportAction = u"import"_s;

const QString kUnverifiedContact = u"%1  (certificate not verified: %2)"_s;
const QString kShownNivoId = u"NIVO ID:  %1"_s;
const QString kShownName = u"Name:     %1"_s;
const QString kShownVerified = u"Verified: yes, issued by the account service"_s;
const QString kShownNotVerified = u"Verified: NO (%1)"_s;
const QString kNoSuchContact = u"No contact %1."_s;
const QString kContactAdded = u"Added %1."_s;
const QString kContactKnown = u"%1 is already a contact."_s;
const QString kContactRemoved = u"Removed %1."_s;
const QString kImported = u"Imported contacts from %1"_s;

}  // namespace

ContactsCommand::ContactsCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"contacts"_s, u"List, show, add, remove, export or import contacts."_s),
      m_account(account) {
    argument(u"action"_s,
             u"list | show NIVOID | add NIVOID | remove NIVOID | export FILE | import FILE"_s,
             u"ACTION [ARG]"_s);
}

int ContactsCommand::run() {
    const QStringList given = positional();
    const QString action = given.value(0, kListAction);
    const qsizetype expected = action == kListAction ? 1 : 2;
    if (action != kListAction && action != kAddAction && action != kRemoveAction &&
        action != kShowAction && action != kExportAction && action != kImportAction) {
        return unknownAction(action);
    }
    if (given.size() > expected || (expected == 2 && given.size() != 2)) {
        return wrongArgumentCount();
    }
    if (!m_account.requireSignIn()) {
        return Failure;
    }
    const QString argument = given.value(1);
    if (action == kListAction) {
        return list();
    }
    if (action == kShowAction) {
        return show(argument);
    }
    if (action == kAddAction) {
        return add(argument);
    }
    if (action == kRemoveAction) {
        return remove(argument);
    }
    if (action == kExportAction) {
        const UserDataExport::Result result = UserDataExport::exportContacts(argument);
        return reportExport(result.failure, result.path);
    }
    return import(argument);
}

int ContactsCommand::list() {
    QList<Contact> contacts = NivoGXUtil::getContactList();
    std::sort(contacts.begin(), contacts.end(), [](const Contact& a, const Contact& b) {
        return a.NivoID.compare(b.NivoID, Qt::CaseInsensitive) < 0;
    });
    for (const Contact& contact : contacts) {
        const QString problem = ContactDB::certificateProblem(contact);
        if (parser().isSet(m_json)) {
            out() << CliMessages::jsonLine({{u"nivoId"_s, contact.NivoID},
                                            {u"displayName"_s, contact.DisplayName},
                                            {u"verified"_s, problem.isEmpty()},
                                            {u"trust"_s, problem}})
                  << Qt::endl;
        } else if (problem.isEmpty()) {
            out() << VisibleText::of(contact.NivoID) << Qt::endl;
        } else {
            out() << kUnverifiedContact.arg(VisibleText::of(contact.NivoID),
                                            VisibleText::of(problem))
                  << Qt::endl;
        }
    }
    return Success;
}

int ContactsCommand::show(const QString& typed) {
    const QString nivoId = RecipientChoice::normalized(typed);
    const QList<Contact> contacts = NivoGXUtil::getContactList();
    const qsizetype at = RecipientChoice::indexOf(contacts, nivoId);
    if (at < 0) {
        messages().say(kNoSuchContact.arg(nivoId));
        return Failure;
    }
    const Contact& contact = contacts.at(at);
    const QString problem = ContactDB::certificateProblem(contact);
    if (parser().isSet(m_json)) {
        const auto details = CertificateTrust::describe(contact.CertData);
        out() << CliMessages::jsonLine({{u"nivoId"_s, contact.NivoID},
                                        {u"displayName"_s, contact.DisplayName},
                                        {u"verified"_s, problem.isEmpty()},
                                        {u"trust"_s, problem},
                                        {u"sha256"_s, details ? details->sha256 : QString()}})
              << Qt::endl;
        return Success;
    }
    out() << kShownNivoId.arg(VisibleText::of(contact.NivoID)) << Qt::endl
          << kShownName.arg(VisibleText::of(contact.DisplayName)) << Qt::endl;
    CliCertificate::print(out(), contact.CertData);
    out() << (problem.isEmpty() ? kShownVerified : kShownNotVerified.arg(VisibleText::of(problem)))
          << Qt::endl;
    return Success;
}

int ContactsCommand::add(const QString& typed) {
    Contact found;
    bool added = false;
    if (!m_account.findRecipient(typed, found, added)) {
        return Failure;
    }
    messages().done((added ? kContactAdded : kContactKnown).arg(VisibleText::of(found.NivoID)),
                    {{u"nivoId"_s, found.NivoID}, {u"added"_s, added}});
    return Success;
}

int ContactsCommand::remove(const QString& typed) {
    const QString nivoId = RecipientChoice::normalized(typed);
    const QList<Contact> contacts = NivoGXUtil::getContactList();
    const auto it = std::find_if(contacts.begin(), contacts.end(),
                                 [&nivoId](const Contact& c) { return c.NivoID == nivoId; });
    if (it == contacts.end()) {
        messages().say(kNoSuchContact.arg(nivoId));
        return Failure;
    }
    NivoGXUtil::deleteContact(it->ID);
    messages().done(kContactRemoved.arg(nivoId), {{u"nivoId"_s, nivoId}, {u"removed"_s, true}});
    return Success;
}

int ContactsCommand::import(const QString& path) {
    QStringList skipped;
    const QString message = NivoGXUtil::importContacts(path, &skipped);
    if (!message.isEmpty()) {
        messages().alert(message, QString());
        return Failure;
    }
    if (!skipped.isEmpty()) {
        messages().warn(ContactDB::notImportedMessage(skipped));
    }
    messages().done(kImported.arg(path),
                    {{u"imported"_s, path}, {u"skipped"_s, QJsonArray::fromStringList(skipped)}});
    return Success;
}
