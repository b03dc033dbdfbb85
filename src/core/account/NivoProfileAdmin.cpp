#include "account/NivoProfileAdmin.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <array>
#include <stdexcept>
#include <utility>

#include "account/AccountServer.h"
#include "account/NivoProfileUtil.h"
#include "crypto/toolkit/ComTruvexIO_MemoryStream.h"
#include "crypto/toolkit/TVXCryptoProvider.h"
#include "crypto/toolkit/comTruvexCrypto_Pkcs12Loader.h"

using namespace Qt::Literals::StringLiterals;

const QString NivoProfileAdmin::kServerUnableToProcess = u"Server unable to process request"_s;
const QString NivoProfileAdmin::kUsernameNotRegistered = u"Username is not registered"_s;
const QString NivoProfileAdmin::kWrongPassword = u"Wrong password"_s;
const QString NivoProfileAdmin::kInvalidNivoIdName = u"Invalid NIVO ID name"_s;
const QString NivoProfileAdmin::kInvalidNivoIdEmail = u"Invalid NIVO ID email"_s;
const QString NivoProfileAdmin::kUsernameNotAvailable = u"Username is not available"_s;
const QString NivoProfileAdmin::kInvalidAccountEntry = u"Invalid Account entry"_s;
const QString NivoProfileAdmin::kServerAnswered = u"The account server answered %1."_s;
const QString NivoProfileAdmin::kUntrustedServer =
    u"The account server's certificate is not trusted (%1)"_s;

namespace {

using Marker = std::pair<QString, const QString*>;

const QString kServiceNotAvailable = u"Service not available"_s;
const QString kIsNotRegistered = u"is not registered"_s;
const QString kWrongPasswordPhrase = u"wrong password"_s;
const QString kIsNotMatched = u"is not matched"_s;
const QString kIsNotAvailable = u"is not available"_s;
const QString kInvalidAccountEntryPhrase = u"Invalid Account Entry"_s;

// Member of a profile answer whose text starts with the login name: "name||...".
const QString kLoginInfoKey = u"LogInInfo"_s;

const QList<Marker>& getProfileMarkers() {
    static const QList<Marker> markers{
        {kServiceNotAvailable, &NivoProfileAdmin::kServerUnableToProcess},
        {kIsNotRegistered, &NivoProfileAdmin::kUsernameNotRegistered},
        {kWrongPasswordPhrase, &NivoProfileAdmin::kWrongPassword}};
    return markers;
}

const QList<Marker>& getIdMarkers() {
    static const QList<Marker> markers{
        {kServiceNotAvailable, &NivoProfileAdmin::kServerUnableToProcess},
        {kIsNotRegistered, &NivoProfileAdmin::kInvalidNivoIdName},
        {kIsNotMatched, &NivoProfileAdmin::kInvalidNivoIdEmail}};
    return markers;
}

const QList<Marker>& createProfileMarkers() {
    static const QList<Marker> markers{
        {kServiceNotAvailable, &NivoProfileAdmin::kServerUnableToProcess},
        {kIsNotAvailable, &NivoProfileAdmin::kUsernameNotAvailable},
        {kInvalidAccountEntryPhrase, &NivoProfileAdmin::kInvalidAccountEntry}};
    return markers;
}

const QList<Marker>& checkLoginNameMarkers() {
    static const QList<Marker> markers{
        {kServiceNotAvailable, &NivoProfileAdmin::kServerUnableToProcess},
        {kIsNotAvailable, &NivoProfileAdmin::kUsernameNotAvailable}};
    return markers;
}

enum class Probe { Profile, ResponseCode };

// The status text of the first marker phrase in the answer, or none. The phrases are searched
// for in the wrapped text; parsing uses the answer itself.
std::optional<QString> markedStatus(const QString& body, Probe probe,
                                    const QList<Marker>& markers) {
    const QString probeText = (probe == Probe::Profile ? u"{\"profile\":%1}"_s
                                                       : u"{\"Response Code\":%1}"_s)
                                  .arg(body);
    for (const auto& [phrase, status] : markers) {
        if (NivoProfileUtil::found(phrase, probeText)) {
            return *status;
        }
    }
    return std::nullopt;
}

// The transport's part of a request: a status text when the answer is not one to read (the
// layer's error, the account server's status, or "" when the answer has no body); none when
// there is a body to read. An answer with an HTTP status outside 2xx is read only when it holds
// one of the operation's marker phrases: anything else there, such as a proxy's error page, is
// no answer of the account server.
struct Sent {
    std::optional<QString> status;
    QString body;
};

Sent send(const QString& path, const HttpRequest::Fields& fields, Probe probe,
          const QList<Marker>& markers) {
    const HttpRequest::Result result = AccountServer::post(path, fields);
    if (result.tlsFailed()) {
        return {NivoProfileAdmin::kUntrustedServer.arg(AccountServer::baseUrl().host()), {}};
    }
    if (result.failed()) {
        return {result.error, {}};
    }
    if (!result.statusOk() &&
        (result.body.isNull() || !markedStatus(result.body, probe, markers))) {
        const QString status = result.statusReason.isEmpty()
                                   ? QString::number(result.status)
                                   : u"%1 %2"_s.arg(result.status).arg(result.statusReason);
        return {NivoProfileAdmin::kServerAnswered.arg(status), {}};
    }
    if (result.body.isNull()) {
        return {QString(u""_s), {}};
    }
    return {std::nullopt, result.body};
}

// The outcome of a request answered with plain text: a marker's status, else "" (success).
QString textStatus(const QString& path, const HttpRequest::Fields& fields,
                   const QList<Marker>& markers) {
    const Sent sent = send(path, fields, Probe::ResponseCode, markers);
    if (sent.status) {
        return *sent.status;
    }
    return markedStatus(sent.body, Probe::ResponseCode, markers).value_or(QString(u""_s));
}

NivoProfile emptyProfile(const QString& status) {
    return NivoProfile::failure(status);
}

}  // namespace

bool NivoProfileAdmin::isUnreachable(const QString& status) {
    const QString untrustedStart = kUntrustedServer.section(u"%1"_s, 0, 0);
    return status == HttpRequest::kConnectionFailure ||
           (status.startsWith(untrustedStart) && status.endsWith(u')'));
}

NivoProfile NivoProfileAdmin::downloadProfileWithLogInName(const QString& loginName,
                                                           const QString& password) {
    const Sent sent = send(u"/nivo/GetProfile.aspx"_s, {{u"logInName"_s, loginName.toLower()},
                                                        {u"logInPassword"_s, password}},
                           Probe::Profile, getProfileMarkers());
    return sent.status ? emptyProfile(*sent.status)
                       : profileFromAnswer(sent.body, loginName, password);
}

NivoProfile NivoProfileAdmin::profileFromAnswer(const QString& answer, const QString& loginName,
                                                const QString& password) {
    if (const auto status = markedStatus(answer, Probe::Profile, getProfileMarkers())) {
        return emptyProfile(*status);
    }
    try {
        auto profile = extractNivoProfileFromResultString(answer, loginName, password);
        if (!profile) {
            return emptyProfile(u""_s);
        }
        profile->StatusText = u""_s;
        return *profile;
    } catch (const std::exception& e) {
        return emptyProfile(u"%1:%2"_s.arg(u"Error"_s, QString::fromUtf8(e.what())));
    }
}

NivoProfile NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(
    const QString& requesterLoginName, const QString& loginNameToRetrieve) {
    const Sent sent = send(u"/nivo/GetId.aspx"_s, {{u"logInName"_s, requesterLoginName},
                                                   {u"logInPassword"_s, u""_s},
                                                   {u"logInNameToRetrieve"_s, loginNameToRetrieve},
                                                   {u"emailToRetrieve"_s, u""_s}},
                           Probe::Profile, getIdMarkers());
    return sent.status ? emptyProfile(*sent.status) : nivoIdFromAnswer(sent.body);
}

NivoProfile NivoProfileAdmin::nivoIdFromAnswer(const QString& answer) {
    if (const auto status = markedStatus(answer, Probe::Profile, getIdMarkers())) {
        return emptyProfile(*status);
    }
    NivoProfile result = emptyProfile(u""_s);
    if (const auto certificate = extractNivoIdFromResulString(answer)) {
        result.Cer = *certificate;
    }
    return result;
}

QString NivoProfileAdmin::createProfileWithLoginName(const QString& loginName,
                                                     const QString& password,
                                                     const QString& firstName,
                                                     const QString& lastName,
                                                     const QString& email) {
    return textStatus(u"/nivo/CreateProfile.aspx"_s,
                      {{u"logInName"_s, loginName.toLower()},
                       {u"logInPassword"_s, password},
                       {u"firstName"_s, firstName},
                       {u"lastName"_s, lastName},
                       {u"email"_s, email},
                       {u"mobilePhone"_s, u""_s},
                       {u"dateOfBirth"_s, u""_s},
                       {u"gender"_s, u""_s},
                       {u"country"_s, u""_s},
                       {u"city"_s, u""_s},
                       {u"language"_s, u""_s},
                       {u"recommendedBy"_s, u""_s}},
                      createProfileMarkers());
}

QString NivoProfileAdmin::changePasswordWithLoginName(const QString& loginName,
                                                      const QString& oldPassword,
                                                      const QString& newPassword) {
    return textStatus(u"/nivo/ChangePassword.aspx"_s,
                      {{u"logInName"_s, loginName},
                       {u"oldLogInPassword"_s, oldPassword},
                       {u"newLogInPassword"_s, newPassword}},
                      getProfileMarkers());
}

QString NivoProfileAdmin::checkLogInNameAvailability(const QString& loginName) {
    return textStatus(u"/nivo/CheckLoginName.aspx"_s, {{u"logInName"_s, loginName.toLower()}},
                      checkLoginNameMarkers());
}

std::optional<Profile> NivoProfileAdmin::extractNivoProfileFromResulString(const QString& answer) {
    const QJsonDocument document = QJsonDocument::fromJson(answer.toUtf8());
    if (!document.isObject()) {
        return std::nullopt;
    }
    return Profile{document.object().value(u"Pfx"_s)};
}

std::optional<QByteArray> NivoProfileAdmin::extractNivoIdFromResulString(const QString& answer) {
    const auto profile = extractNivoProfileFromResulString(answer);
    if (!profile || profile->Pfx.isUndefined()) {
        return std::nullopt;
    }
    if (!profile->Pfx.isArray()) {
        throw std::invalid_argument("the answer's Pfx member is not an array");
    }
    return NivoProfileUtil::NSArrayToNSData(profile->Pfx.toArray());
}

std::optional<NivoProfile> NivoProfileAdmin::extractNivoProfileFromResultString(
    const QString& answer, const QString& /*loginName*/, const QString& password) {
    const QJsonDocument document = QJsonDocument::fromJson(answer.toUtf8());
    const auto pfx = extractNivoIdFromResulString(answer);
    if (!pfx) {
        return std::nullopt;
    }
    const QJsonValue info = document.object().value(kLoginInfoKey);
    if (!info.isString()) {
        throw std::invalid_argument("the answer carries no login name");
    }
    NivoProfile profile;
    profile.Pfx = *pfx;
    profile.Cer = NivoProfileUtil::extractCerFromPfx(*pfx, password).value_or(QByteArray());
    profile.LoginName = info.toString().section(u"||"_s, 0, 0);
    const QDateTime now = QDateTime::currentDateTime();
    profile.SyncDate = now.toString(u"yyyy-MM-dd"_s);
    profile.SyncTime = now.toString(u"HH:mm:ss"_s);
    profile.StatusText = u""_s;
    return profile;
}

bool NivoProfileAdmin::localLoginWithLoginName(const QString& /*loginName*/,
                                               const QString& password, const QByteArray& pfx) {
    try {
        auto stream = ComTruvexIO_MemoryStream::streamFromData(pfx);
        auto loader = comTruvexCrypto_Pkcs12Loader::loaderCryptoProvider(TVXDefaultCryptoProvider());
        loader.loadFromStream(*stream, password);
        stream->close();
        return true;
    } catch (const std::exception&) {
        return false;
    }
}
