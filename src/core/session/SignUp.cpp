#include "session/SignUp.h"

#include "account/NivoProfileAdmin.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kUsernameRequired = QT_TRANSLATE_NOOP("SignUp", "Username required");
const char* const kEnterUsername = QT_TRANSLATE_NOOP("SignUp", "Please enter your NIVO username.");
const char* const kPasswordRequired = QT_TRANSLATE_NOOP("SignUp", "Password required");
const char* const kEnterPassword = QT_TRANSLATE_NOOP("SignUp", "Please enter your NIVO password.");
const char* const kRetypeRequired = QT_TRANSLATE_NOOP("SignUp", "Re-type Password required");
const char* const kUsernameNotValid =
    QT_TRANSLATE_NOOP("SignUp", "Username is not considered valid");
// The trailing blank is part of the text users have always seen.
const char* const kUsernameCharacters = QT_TRANSLATE_NOOP(
    "SignUp", "Username may only contain the following characters: a-z, A-Z, 0-9, .'_ ");
const char* const kPasswordsDiffer = QT_TRANSLATE_NOOP("SignUp", "Passwords do not match");
const char* const kPasswordsSame = QT_TRANSLATE_NOOP(
    "SignUp", "Please ensure that both Password and Re-type password are the same.");
const char* const kRegistering = QT_TRANSLATE_NOOP("SignUp", "Registering ...");
const char* const kRegistrationFailed = QT_TRANSLATE_NOOP("SignUp", "Registration Failed");

}  // namespace

QString SignUp::registering() {
    return tr(kRegistering);
}
QString SignUp::registrationFailed() {
    return tr(kRegistrationFailed);
}

std::optional<AccountAlert> SignUp::checkFields(const QString& loginName, const QString& password,
                                                const QString& retypedPassword) {
    if (loginName.isEmpty()) {
        return AccountAlert{tr(kUsernameRequired), tr(kEnterUsername)};
    }
    if (password.isEmpty()) {
        return AccountAlert{tr(kPasswordRequired), tr(kEnterPassword)};
    }
    if (retypedPassword.isEmpty()) {
        // Asks for "your NIVO password" like the password field does.
        return AccountAlert{tr(kRetypeRequired), tr(kEnterPassword)};
    }
    if (!NivoGXUtil::IsValidAccount(loginName)) {
        return AccountAlert{tr(kUsernameNotValid), tr(kUsernameCharacters)};
    }
    if (retypedPassword != password) {
        return AccountAlert{tr(kPasswordsDiffer), tr(kPasswordsSame)};
    }
    return std::nullopt;
}

QString SignUp::emailFor(const QString& loginName) {
    return loginName + u'@' + loginName + u".com"_s;
}

QString SignUp::createAccount(const QString& loginName, const QString& password) {
    return NivoProfileAdmin::createProfileWithLoginName(loginName, password, loginName, loginName,
                                                        emailFor(loginName));
}
