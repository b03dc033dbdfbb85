#include "CredentialsCommand.h"

#include <utility>

#include "CliAccount.h"
#include "session/SignIn.h"

using namespace Qt::Literals::StringLiterals;

CredentialsCommand::CredentialsCommand(CliMessages& messages, CliAccount& account, QString name,
                                       QString summary)
    : CliCommand(messages, std::move(name), std::move(summary), 1), m_account(account) {
    argument(u"name"_s, u"Your NIVO username."_s, u"NAME"_s);
}

bool CredentialsCommand::readCredentials(bool confirm, QString& loginName, QString& password,
                                         QString& retyped) {
    if (!m_account.readPassword(parser().isSet(m_passwordStdin), confirm, password, retyped)) {
        return false;
    }
    loginName = SignIn::trimmed(positional().constFirst());
    password = SignIn::trimmed(password);
    retyped = SignIn::trimmed(retyped);
    return true;
}
