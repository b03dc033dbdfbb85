#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

#include "account/Profile.h"
#include "model/NivoProfile.h"

// The account server's five requests, each sent synchronously on the calling thread (never the
// GUI thread), and the reading of their answers. Outcomes are status texts: "" is success, any
// other text is ready to show as it stands.
class NivoProfileAdmin {
public:
    NivoProfileAdmin() = delete;

    static const QString kServerUnableToProcess;
    static const QString kUsernameNotRegistered;
    static const QString kWrongPassword;
    static const QString kInvalidNivoIdName;
    static const QString kInvalidNivoIdEmail;
    static const QString kUsernameNotAvailable;
    static const QString kInvalidAccountEntry;
    // An answer outside 2xx that holds none of the operation's marker phrases; "%1" is the
    // status and its reason, "502 Bad Gateway".
    static const QString kServerAnswered;
    // A failed TLS handshake; "%1" is the server's host.
    static const QString kUntrustedServer;

    // Whether a status text says the server could not be reached at all: no connection, or a
    // server whose certificate is not trusted.
    [[nodiscard]] static bool isUnreachable(const QString& status);

    // GetProfile: the signed-in user's profile, or an empty one carrying the status text.
    [[nodiscard]] static NivoProfile downloadProfileWithLogInName(const QString& loginName,
                                                                  const QString& password);
    // GetId: a profile whose Cer is the looked-up user's certificate. A malformed "Pfx" member
    // escapes as std::invalid_argument for the caller to handle.
    [[nodiscard]] static NivoProfile downloadNivoIdWithRequesterLogInName(
        const QString& requesterLoginName, const QString& loginNameToRetrieve);
    [[nodiscard]] static QString createProfileWithLoginName(const QString& loginName,
                                                            const QString& password,
                                                            const QString& firstName,
                                                            const QString& lastName,
                                                            const QString& email);
    [[nodiscard]] static QString changePasswordWithLoginName(const QString& loginName,
                                                             const QString& oldPassword,
                                                             const QString& newPassword);
    [[nodiscard]] static QString checkLogInNameAvailability(const QString& loginName);

    // What downloadProfileWithLogInName makes of the body of a GetProfile answer: a marker's
    // status, the profile, or an empty profile with "" or the "Error:" text of a bad answer.
    [[nodiscard]] static NivoProfile profileFromAnswer(const QString& answer,
                                                       const QString& loginName,
                                                       const QString& password);
    // What downloadNivoIdWithRequesterLogInName makes of the body of a GetId answer; throws
    // std::invalid_argument as that does.
    [[nodiscard]] static NivoProfile nivoIdFromAnswer(const QString& answer);

    // A profile from a GetProfile answer, its certificate taken out of the PFX with the password
    // (absent when that fails). Absent without a "Pfx" member; throws std::invalid_argument when
    // the members have unexpected types or the login-name text is missing.
    [[nodiscard]] static std::optional<NivoProfile> extractNivoProfileFromResultString(
        const QString& answer, const QString& loginName, const QString& password);
    // The answer's "Pfx" member as it stands; absent when the answer is not a JSON object.
    [[nodiscard]] static std::optional<Profile> extractNivoProfileFromResulString(
        const QString& answer);
    // The answer's "Pfx" member as bytes; absent without it.
    [[nodiscard]] static std::optional<QByteArray> extractNivoIdFromResulString(
        const QString& answer);

    // True when the password opens the PFX. The login name plays no part.
    [[nodiscard]] static bool localLoginWithLoginName(const QString& loginName,
                                                      const QString& password,
                                                      const QByteArray& pfx);
};
