#include "CliAccount.h"

#include <QList>

#include "CliConsole.h"
#include "CliMessages.h"
#include "session/NivoGXUtil.h"
#include "session/RecipientChoice.h"
#include "session/SignIn.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kPasswordPrompt = u"Password: "_s;
const QString kRetypePrompt = u"Re-type Password: "_s;
const QString kNoTerminal =
    u"No terminal to read the password from; pass it on standard input with --password-stdin."_s;
const QString kNotSignedIn = u"Nobody is signed in; run 'nivogx-cli signin NAME' first."_s;

}  // namespace

bool CliAccount::readPassword(bool fromStdin, bool confirm, QString& password, QString& retyped) {
    CliConsole& console = m_messages.console();
    if (fromStdin) {
        password = console.readLine().value_or(QString());
        retyped = password;
        return true;
    }
    const auto first = console.readSecret(kPasswordPrompt);
    if (!first) {
        m_messages.say(kNoTerminal);
        return false;
    }
    password = *first;
    retyped = confirm ? console.readSecret(kRetypePrompt).value_or(QString()) : password;
    return true;
}

void CliAccount::reportNotSignedIn() {
    m_messages.say(kNotSignedIn);
}

bool CliAccount::requireSignIn() {
    if (!NivoGXUtil::generateRequiredDirectory()) {
        reportNotSignedIn();
        return false;
    }
    NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
    return true;
}

bool CliAccount::prepareRun(bool passwordFromStdin, QString& password) {
    if (NivoGXUtil::generateRequiredDirectory()) {
        password = NivoGXUtil::getNivoPassword();
    } else if (NivoGXUtil::hasKeyFiles()) {
        QString unused;
        if (!readPassword(passwordFromStdin, false, password, unused)) {
            return false;
        }
        password = SignIn::trimmed(password);
        if (const auto alert = SignIn::checkFields(NivoGXUtil::getNivoUsername(), password)) {
            m_messages.alert(alert->message, alert->informativeText);
            return false;
        }
        NivoGXUtil::setNivoProfile();
    } else {
        reportNotSignedIn();
        return false;
    }
    NivoGXUtil::generateUserContactDB(NivoGXUtil::getNivoUsername());
    return true;
}

bool CliAccount::findRecipient(const QString& typed, Contact& contact, bool& added) {
    const QString name = RecipientChoice::normalized(typed);
    added = false;
    if (RecipientChoice::isSelf(name)) {
        m_messages.alert(RecipientChoice::unableToAddSelf(), QString());
        return false;
    }
    const QList<Contact> contacts = NivoGXUtil::getContactList();
    if (const qsizetype at = RecipientChoice::indexOf(contacts, name); at >= 0) {
        contact = contacts.at(at);
        return true;
    }
    const NivoProfile answer = RecipientChoice::lookUp(name);
    const std::optional<Contact> looked = RecipientChoice::addLookedUp(name, answer);
    if (!looked) {
        m_messages.alert(RecipientChoice::userDoesNotExist(), answer.StatusText);
        return false;
    }
    contact = *looked;
    added = true;
    return true;
}
