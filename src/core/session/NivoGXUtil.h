#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

#include "contacts/ContactDB.h"
#include "model/Contact.h"
#include "model/ContactPreset.h"
#include "model/LogEntry.h"
#include "model/NivoProfile.h"
#include "processing/RunEnvironment.h"

// The signed-in user's things as class methods: each forwards to the current Session (see
// Session::current()), which holds the state. Callers on the main thread only.
class NivoGXUtil {
public:
    NivoGXUtil() = delete;

    // Session's texts: service name of the credential record in the secret store, refusals.
    static const QString& kKeychainService;
    static const QString& kImportContactSignIn;
    static const QString& kImportContactMappingSignIn;

    // --- folders, profile and sign-in state ---

    // Creates the folder tree when needed and reports whether a complete sign-in is present:
    // user name and password stored, and the user's pfx and certificate files on disk. On success
    // the profile is loaded from those files.
    static bool generateRequiredDirectory();
    // The same test, without creating folders or loading the profile.
    static bool hasRequiredCredentials();
    // Whether the stored user name's pfx and certificate files are on disk, a password stored or
    // not; computes that user's paths. The command-line tool asks for a missing password then.
    static bool hasKeyFiles();
    // Loads the current profile from the pfx and certificate files of the stored user name.
    static void setNivoProfile();
    // Writes a freshly obtained profile's files and makes it current. False, with the reason in
    // `error` when given and no profile current, when a file could not be written.
    [[nodiscard]] static bool setNivoProfile(const NivoProfile& profile, QString* error = nullptr);
    [[nodiscard]] static std::optional<NivoProfile> getNivoProfile();
    // Keeps the user name, forgets the password and deletes the user's pfx and certificate; the
    // key files the crypto layer kept open are forgotten too.
    static void logout();
    // Removes what a killed or crashed run left half written (AtomicFile's temporaries) from
    // the application folders and the remembered output folders. Run at start.
    static void removeStaleTemporaries();

    // Applies each non-empty argument: a user name stores the credentials, a folder its setting.
    static void saveSettings(const QString& userName, const QString& password,
                             const QString& lastInputFolder,
                             const QString& lastEncryptOutputFolder,
                             const QString& lastDecryptOutputFolder);
    // Null when never set.
    [[nodiscard]] static QString getLastInputFolder();
    [[nodiscard]] static QString getLastOutputEncryptFolder();
    [[nodiscard]] static QString getLastOutputDecryptFolder();
    // Puts `folder` back as the remembered output folder of a direction; "" forgets it.
    static void setLastOutputFolder(bool toEncrypt, const QString& folder);

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

    // --- the user's contact database ---

    // Opens (creating when absent) the user's database and makes it the current one.
    static void generateUserContactDB(const QString& userName);
    // Puts a copy of `sourcePath` in place of the user's database file; the current database
    // object keeps its path and sees the new file at its next operation.
    // False, with the reason in `error` when given and the old file kept, when the copy failed.
    [[nodiscard]] static bool replaceUserContactDB(const QString& userName,
                                                   const QString& sourcePath,
                                                   QString* error = nullptr);
    static void deleteUserContactDB(const QString& userName);
    // The user's database file, inside the contacts folder.
    [[nodiscard]] static QString contactDBPath(const QString& userName);

    // Forwarders to the current database. Without one (nobody signed in) they do nothing and
    // return an empty list, a null string or 0.
    [[nodiscard]] static QList<Contact> getContactList();
    // Account name of the contact holding exactly this DER certificate; empty for a stranger.
    // Decryption names a known sender with it.
    [[nodiscard]] static QString getNIVOIDfromCertData(const QByteArray& certData);
    // A copy of the current database object, none when nobody is signed in. A copy opens its own
    // connection per operation, so it may be handed to a worker thread while the current one
    // stays with the main thread.
    [[nodiscard]] static std::optional<ContactDB> currentContactDB();
    static qint64 addContact(const Contact& contact);
    static void deleteContact(qint64 id);
    [[nodiscard]] static QList<ContactPreset> GetContactPreset();
    static QString saveContactPreset(const ContactPreset& preset);

    // --- backup and profile files ---

    // Writes a contact backup: the profile row is first taken out of the live database so that
    // no PKCS#12 ever leaves in a backup. False when nobody is signed in, or, with the reason in
    // `error` when given, when the copy failed.
    [[nodiscard]] static bool exportContacts(const QString& path, QString* error = nullptr);
    // Writes the profile into the live database, then copies the database to `path`. False when
    // nobody is signed in or the profile could not be written, or, with the reason in `error`
    // when given, when the copy failed.
    [[nodiscard]] static bool exportNivoProfileDB(const QString& path, const NivoProfile& profile,
                                                  QString* error = nullptr);
    // Empty on success, otherwise the message to show. Rows left out because their certificates
    // could not be verified go to `skipped` (see ContactDB::importContactDB); the others count
    // as a success.
    [[nodiscard]] static QString importContacts(const QString& path,
                                                QStringList* skipped = nullptr);
    [[nodiscard]] static QString importContactMapping(const QString& path);

    // --- the user's activity log (at logPath()) ---

    static void writeToLog(const QString& operationType, const QString& filePath,
                           const QStringList& recipients, const QString& status);
    [[nodiscard]] static QList<LogEntry> getLogEntries();
    static void viewLog();
    // False when there is no log, or, with the reason in `error` when given, when the copy failed.
    [[nodiscard]] static bool exportLogFile(const QString& destinationPath,
                                            QString* error = nullptr);
    static void clearLogFile();

    // The current session as runs see it.
    [[nodiscard]] static std::shared_ptr<RunEnvironment> runEnvironment();

    // Makes a new, empty session current; for tests that run several sessions in one process.
    static void resetState();
};
