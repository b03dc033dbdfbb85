#include "SignupCommand.h"

#include "CliMessages.h"
#include "session/SignUp.h"

using namespace Qt::Literals::StringLiterals;

SignupCommand::SignupCommand(CliMessages& messages, CliAccount& account)
    : CredentialsCommand(messages, account, u"signup"_s,
                         u"Create an account on the account server."_s) {}

int SignupCommand::run() {
    QString loginName;
    QString password;
    QString retyped;
    if (!readCredentials(true, loginName, password, retyped)) {
        return Failure;
    }
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
