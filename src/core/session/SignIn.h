#pragma once

#include <QCoreApplication>
#include <QString>
#include <optional>

#include "account/AccountAlert.h"
#include "model/NivoProfile.h"

// The rules of signing in, shared by every front end: the checks of the typed fields, the
// server request, what a successful sign-in keeps, and the sign-in from a profile file when the
// server cannot be reached. The request runs on a worker thread; everything else belongs to the
// main thread because it touches the process-wide profile, stores and database.
class SignIn {
    Q_DECLARE_TR_FUNCTIONS(SignIn)

public:
    SignIn() = delete;

    [[nodiscard]] static QString signingIn();
    [[nodiscard]] static QString signInFailed();
    [[nodiscard]] static QString unableToConnect();
    [[nodiscard]] static QString offerProfileFile();
    [[nodiscard]] static QString selectProfileFile();
    // The extension of profile files, without the dot.
    [[nodiscard]] static QString profileFileType();

    // Fields are used without surrounding blanks and line breaks.
    [[nodiscard]] static QString trimmed(const QString& field);
    // The first problem of the (trimmed) fields, or none when a request may be sent.
    [[nodiscard]] static std::optional<AccountAlert> checkFields(const QString& loginName,
                                                                 const QString& password);

    // Asks the account server for the profile. Blocks: call it on a worker thread.
    [[nodiscard]] static NivoProfile requestProfile(const QString& loginName,
                                                    const QString& password);
    [[nodiscard]] static bool succeeded(const NivoProfile& profile) noexcept;
    // The server could not be reached at all, so a profile file may stand in for it. A time-out
    // is not such a case: the server may have been reached.
    [[nodiscard]] static bool offersProfileFile(const NivoProfile& profile);
    // Keeps a successful sign-in: the profile's files, credentials under the name as typed, and
    // the user's contact database opened. When the files cannot be written nothing else is kept
    // and the alert to show comes back.
    [[nodiscard]] static std::optional<AccountAlert> keep(const QString& loginName,
                                                          const QString& password,
                                                          const NivoProfile& profile);

    // Reads and checks the profile kept in a profile file; StatusText says why it was refused.
    [[nodiscard]] static NivoProfile readProfileFile(const QString& path, const QString& loginName,
                                                     const QString& password);
    // Keeps a sign-in from a profile file as keep() does, returning its alert when that failed;
    // then takes over the contacts and presets the file carries (failures are not looked at: the
    // sign-in has already succeeded). `notImported` gets what to tell the user about contacts
    // left out because their certificates could not be verified; "" when none were.
    [[nodiscard]] static std::optional<AccountAlert> keepFromProfileFile(const QString& path,
                                                                         const QString& loginName,
                                                                         const QString& password,
                                                                         const NivoProfile& profile,
                                                                         QString* notImported);
};
