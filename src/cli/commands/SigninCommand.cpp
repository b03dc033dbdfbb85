#include "SigninCommand.h"

#include "CliAccount.h"
#include "CliConsole.h"
#include "CliMessages.h"
#include "account/SignIn.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kOfflineHint = u"Sign in from an exported profile with --profile-file FILE."_s;

}  // namespace

SigninCommand::SigninCommand(CliMessages& messages, CliAccount& account)
    : CliCommand(messages, u"signin"_s, u"Sign in, online or from a profile file."_s, 1),
      m_account(account) {
    argument(u"name"_s, u"Your NIVO username."_s, u"NAME"_s);
}

int SigninCommand::run() {
    QString password;
    QString unused;
    if (!m_account.readPassword(parser().isSet(m_passwordStdin), false, password, unused)) {
        return Failure;
    }
    const QString loginName = SignIn::trimmed(positional().constFirst());
    password = SignIn::trimmed(password);
    if (const auto alert = SignIn::checkFields(loginName, password)) {
        messages().alert(alert->message, alert->informativeText);
        return Failure;
    }

    if (parser().isSet(m_profileFile)) {
        const QString path = parser().value(m_profileFile);
        const NivoProfile profile = SignIn::readProfileFile(path, loginName, password);
        if (!profile.StatusText.isEmpty()) {
            messages().alert(SignIn::signInFailed(), profile.StatusText);
            return Failure;
        }
        if (const QString skipped = SignIn::keepFromProfileFile(path, loginName, password, profile);
            !skipped.isEmpty()) {
            messages().say(skipped);
        }
    } else {
        const NivoProfile profile = SignIn::requestProfile(loginName, password);
        if (!SignIn::succeeded(profile)) {
            if (SignIn::offersProfileFile(profile)) {
                messages().alert(SignIn::unableToConnect(),
                                 profile.StatusText + u'\n' + kOfflineHint);
            } else {
                messages().alert(SignIn::signInFailed(), profile.StatusText);
            }
            return Failure;
        }
        SignIn::keep(loginName, password, profile);
    }
    out() << u"Signed in as %1."_s.arg(loginName) << Qt::endl;
    return Success;
}
