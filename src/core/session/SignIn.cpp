#include "session/SignIn.h"

#include "account/NivoProfileAdmin.h"
#include "account/NivoProfileUtil.h"
#include "contacts/ContactDB.h"
#include "net/HttpRequest.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kUsernameRequired = QT_TRANSLATE_NOOP("SignIn", "Username required");
const char* const kEnterUsername = QT_TRANSLATE_NOOP("SignIn", "Please enter your NIVO username.");
const char* const kPasswordRequired = QT_TRANSLATE_NOOP("SignIn", "Password required");
const char* const kEnterPassword = QT_TRANSLATE_NOOP("SignIn", "Please enter your NIVO password.");
const char* const kSigningIn = QT_TRANSLATE_NOOP("SignIn", "Signing in...");
const char* const kSignInFailed = QT_TRANSLATE_NOOP("SignIn", "Sign in Failed");
const char* const kKeyFilesNotSaved =
    QT_TRANSLATE_NOOP("SignIn", "Your key files could not be saved. %1");
const char* const kUnableToConnect =
    QT_TRANSLATE_NOOP("SignIn", "Unable to connect to NIVO Server");
const char* const kOfferProfileFile =
    QT_TRANSLATE_NOOP("SignIn", "Do you wish to sign in using your NIVO offline profile?");
const char* const kSelectProfileFile =
    QT_TRANSLATE_NOOP("SignIn", "Select NIVO Profile file to sign in");

const QString kProfileFileType = u"vts"_s;

}  // namespace

QString SignIn::signingIn() {
    return tr(kSigningIn);
}
QString SignIn::signInFailed() {
    return tr(kSignInFailed);
}
QString SignIn::unableToConnect() {
    return tr(kUnableToConnect);
}
QString SignIn::offerProfileFile() {
    return tr(kOfferProfileFile);
}
QString SignIn::selectProfileFile() {
    return tr(kSelectProfileFile);
}
QString SignIn::profileFileType() {
    return kProfileFileType;
}

QString SignIn::trimmed(const QString& field) {
    return field.trimmed();
}

std::optional<AccountAlert> SignIn::checkFields(const QString& loginName, const QString& password) {
    if (loginName.isEmpty()) {
        return AccountAlert{tr(kUsernameRequired), tr(kEnterUsername)};
    }
    if (password.isEmpty()) {
        return AccountAlert{tr(kPasswordRequired), tr(kEnterPassword)};
    }
    return std::nullopt;
}

NivoProfile SignIn::requestProfile(const QString& loginName, const QString& password) {
    return NivoProfileAdmin::downloadProfileWithLogInName(loginName, password);
}

bool SignIn::succeeded(const NivoProfile& profile) noexcept {
    return profile.isUsable();
}

bool SignIn::offersProfileFile(const NivoProfile& profile) {
    return NivoProfileAdmin::isUnreachable(profile.StatusText);
}

std::optional<AccountAlert> SignIn::keep(const QString& loginName, const QString& password,
                                         const NivoProfile& profile) {
    if (QString error; !NivoGXUtil::setNivoProfile(profile, &error)) {
        return AccountAlert{tr(kSignInFailed), tr(kKeyFilesNotSaved).arg(error)};
    }
    NivoGXUtil::saveNivoCredentials(loginName, password);
    NivoGXUtil::generateUserContactDB(loginName);
    return std::nullopt;
}

NivoProfile SignIn::readProfileFile(const QString& path, const QString& loginName,
                                    const QString& password) {
    return ContactDB::importProfileDB(
        path, loginName, password, [](const QByteArray& pfx, const QString& pass) {
            return NivoProfileUtil::extractCerFromPfx(pfx, pass).value_or(QByteArray());
        });
}

std::optional<AccountAlert> SignIn::keepFromProfileFile(const QString& path,
                                                        const QString& loginName,
                                                        const QString& password,
                                                        const NivoProfile& profile,
                                                        QString* notImported) {
    if (auto alert = keep(loginName, password, profile)) {
        return alert;
    }
    QStringList skipped;
    (void)NivoGXUtil::importContacts(path, &skipped);
    (void)NivoGXUtil::importContactMapping(path);
    *notImported = ContactDB::notImportedMessage(skipped);
    return std::nullopt;
}
