#pragma once

#include <QString>
#include <optional>

#include "account/NivoProfile.h"

// The one place that decides where the signed-in user's things live: the folder tree under the
// user's data folder, per-user file names, remembered folders, stored credentials, the current
// profile and the sign-in state. Class-level only; the process-wide state is touched from the
// main thread only.
class NivoGXUtil {
public:
    NivoGXUtil() = delete;

    // Service name of the credential record in the secret store.
    static const QString kKeychainService;

    // --- folders, profile and sign-in state ---

    // Creates the folder tree when needed and reports whether a complete sign-in is present:
    // user name and password stored, and the user's pfx and certificate files on disk. On success
    // the profile is loaded from those files.
    static bool generateRequiredDirectory();
    // The same test, without creating folders or loading the profile.
    static bool hasRequiredCredentials();
    // Loads the current profile from the pfx and certificate files of the stored user name.
    static void setNivoProfile();
    // Writes a freshly obtained profile's files and makes it current.
    static void setNivoProfile(const NivoProfile& profile);
    [[nodiscard]] static std::optional<NivoProfile> getNivoProfile();
    // Keeps the user name, forgets the password and deletes the user's pfx and certificate.
    static void logout();

    // Applies each non-empty argument: a user name stores the credentials, a folder its setting.
    static void saveSettings(const QString& userName, const QString& password,
                             const QString& lastInputFolder,
                             const QString& lastEncryptOutputFolder,
                             const QString& lastDecryptOutputFolder);
    // Null when never set.
    [[nodiscard]] static QString getLastInputFolder();
    [[nodiscard]] static QString getLastOutputEncryptFolder();
    [[nodiscard]] static QString getLastOutputDecryptFolder();

    // --- credentials ---

    static void saveNivoCredentials(const QString& loginName, const QString& password);
    // Null when none is stored.
    [[nodiscard]] static QString getNivoUsername();
    [[nodiscard]] static QString getNivoPassword();

    // --- validators ---

    [[nodiscard]] static bool NSStringIsValidEmail(const QString& candidate);
    [[nodiscard]] static bool IsValidAccount(const QString& candidate);

    // --- paths (as last computed; empty before the first computation) ---

    [[nodiscard]] static QString applicationFolder();
    [[nodiscard]] static QString pfxFolder();
    [[nodiscard]] static QString certificateFolder();
    [[nodiscard]] static QString contactsFolder();
    [[nodiscard]] static QString logFolder();
    [[nodiscard]] static QString pfxPath();
    [[nodiscard]] static QString certificatePath();
    [[nodiscard]] static QString logPath();

    // Forgets every process-wide value; for tests that run several sessions in one process.
    static void resetState();
};
