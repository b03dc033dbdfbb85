#include "SigninCommand.h"

#include "CliMessages.h"
#include "session/SignIn.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kOfflineHint = u"Sign in from an exported profile with --profile-file FILE."_s;

}  // namespace

SigninCommand::SigninCommand(CliMessages& messages, CliAccount& account)
    : CredentialsCommand(messages, account, u"signin"_s,
                         u"Sign in, online or from a profile file."_s) {}

int SigninCommand::run() {
    QString loginName;
    QString password;
    QString unused;
    if (!readCredentials(false, loginName, password, unused)) {
        return Failure;
    }
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
        QString skipped;
        if (const auto alert =
                SignIn::keepFromProfileFile(path, loginName, password, profile, &skipped)) {
            messages().alert(alert->message, alert->informativeText);
            return Failure;
        }
        if (!skipped.isEmpty()) {
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
        if (const auto alert = SignIn::keep(loginName, password, profile)) {
            messages().alert(alert->message, alert->informativeText);
            return Failure;
        }
    }
    out() << u"Signed in as %1."_s.arg(loginName) << Qt::endl;
    return Success;
}
