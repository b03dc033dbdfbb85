#include "EncryptCommand.h"

#include "CliAccount.h"
#include "CliMessages.h"
#include "contacts/ContactDB.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kUnverifiedRecipient =
    u"Warning: the certificate of %1 is not verified (%2); protecting for it anyway."_s;

}  // namespace

EncryptCommand::EncryptCommand(CliMessages& messages, CliAccount& account)
    : FileRunCommand(messages, account, u"encrypt"_s,
                     u"Protect files for contacts (and yourself)."_s, true) {}

int EncryptCommand::run() {
    if (const auto done = takeFiles()) {
        return *done;
    }
    QList<Contact> recipients;
    if (parser().isSet(m_lastUsed)) {
        recipients = RecipientChoice::lastChoice(NivoGXUtil::getContactList());
    }
    for (const QString& nivoId : parser().values(m_recipient)) {
        Contact found;
        bool added = false;
        if (!account().findRecipient(nivoId, found, added)) {
            return Failure;
        }
        if (RecipientChoice::indexOf(recipients, found.NivoID) < 0) {
            recipients.append(found);
        }
    }
    const QString folder = takeOutputFolder();
    if (folder.isEmpty()) {
        return Failure;
    }
    RecipientChoice::rememberChoice(recipients);
    for (const Contact& recipient : recipients) {
        if (const QString problem = ContactDB::certificateProblem(recipient); !problem.isEmpty()) {
            messages().warn(kUnverifiedRecipient.arg(VisibleText::of(recipient.NivoID),
                                                     VisibleText::of(problem)));
        }
    }
    return runFiles(folder, recipients, parser().isSet(m_armor), false);
}
