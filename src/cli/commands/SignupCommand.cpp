#include "SignupCommand.h"

#include "CliAccount.h"
#include "CliConsole.h"
#include "CliMessages.h"
#include "account/SignIn.h"
#include "account/SignUp.h"

using namespace Qt::Literals::StringLiterals;

SignupCommand::SignupCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"signup"_s, u"Create an account on the account server."_s, 1),
      m_account(account) {
    argument(u"name"_s, u"Your NIVO username."_s, u"NAME"_s);
}

int SignupCommand::run() {
    QString password;
    QString retyped;
    if (!m_account.readPassword(parser().isSet(m_passwordStdin), true, password, retyped)) {
        return Failure;
    }
    const QString loginName = SignIn::trimmed(positional().constFirst());
    password = SignIn::trimmed(password);
    retyped = SignIn::trimmed(retyped);
    if (const auto alert = SignUp::checkFields(loginName, password, retyped)) {
        messages().alert(alert->message, alert->informativeText);
        return Failure;
    }
    const QString failure = SignUp::createAccount(loginName, password);
    if (!failure.isEmpty()) {
        messages().alert(SignUp::registrationFailed(), failure);
        return Failure;
    }
    out() << u"Account %1 created."_s.arg(loginName) << Qt::endl;
    return Success;
}
