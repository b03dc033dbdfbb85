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

// One person's use of the program: where their things live (the folder tree under the user's data
// folder, per-user file names), the remembered folders, the stored credentials, the current
// profile, contact database and activity log, and whether they are signed in. A program makes one
// at start and makes it current for NivoGXUtil; a test makes its own. Used from the thread that
// made it; runs reach it through RunEnvironment, on that same thread.
class Session final : public RunEnvironment {
public:
    // Service name of the credential record in the secret store.
    static const QString kKeychainService;
    static const QString kImportContactSignIn;
    static const QString kImportContactMappingSignIn;

    Session() = default;

    // The session NivoGXUtil speaks for. One is made on first use when the program made none.
    [[nodiscard]] static const std::shared_ptr<Session>& current();
    static void makeCurrent(std::shared_ptr<Session> session);

    // --- folders, profile and sign-in state ---

    // Creates the folder tree when needed and reports whether a complete sign-in is present:
    // user name and password stored, and the user's pfx and certificate files on disk. On success
    // the profile is loaded from those files.
    bool generateRequiredDirectory();
    // The same test, without creating folders or loading the profile.
    bool hasRequiredCredentials();
    // Whether the stored user name's pfx and certificate files are on disk, a password stored or
    // not; computes that user's paths.
    bool hasKeyFiles();
    // Loads the current profile from the pfx and certificate files of the stored user name.
    void setNivoProfile();
    // Writes a freshly obtained profile's files and makes it current. False, with the reason in
    // `error` when given and no profile current, when a file could not be written.
    [[nodiscard]] bool setNivoProfile(const NivoProfile& profile, QString* error = nullptr);
    [[nodiscard]] std::optional<NivoProfile> getNivoProfile() const { return m_profile; }
    // Keeps the user name, forgets the password and deletes the user's pfx and certificate; the
    // key files the crypto layer kept open are forgotten too.
    void logout();
    // Removes what a killed or crashed run left half written (AtomicFile's temporaries) from
    // the application folders and the remembered output folders.
    void removeStaleTemporaries();

    // Applies each non-empty argument: a user name stores the credentials, a folder its setting.
    void saveSettings(const QString& userName, const QString& password,
                      const QString& lastInputFolder, const QString& lastEncryptOutputFolder,
                      const QString& lastDecryptOutputFolder);
    // Null when never set.
    [[nodiscard]] QString getLastInputFolder() const;
    [[nodiscard]] QString getLastOutputEncryptFolder() const;
    [[nodiscard]] QString getLastOutputDecryptFolder() const;
    // Puts `folder` back as the remembered output folder of a direction; "" forgets it.
    void setLastOutputFolder(bool toEncrypt, const QString& folder);

    // --- credentials ---

    void saveNivoCredentials(const QString& loginName, const QString& password);
    // Null when none is stored.
    [[nodiscard]] QString getNivoUsername() const;
    [[nodiscard]] QString getNivoPassword() const;

    // --- paths (as last computed; empty before the first computation) ---

    [[nodiscard]] QString applicationFolder() { return folders().applicationFolder; }
    [[nodiscard]] QString pfxFolder() { return folders().pfxFolder; }
    [[nodiscard]] QString certificateFolder() { return folders().certificateFolder; }
    [[nodiscard]] QString contactsFolder() { return folders().contactsFolder; }
    [[nodiscard]] QString logFolder() { return folders().logFolder; }
    [[nodiscard]] QString pfxPath() const { return m_pfxPath; }
    [[nodiscard]] QString certificatePath() const { return m_certificatePath; }
    [[nodiscard]] QString logPath() const { return m_logPath; }

    // --- the user's contact database ---

    // Opens (creating when absent) the user's database and makes it the current one.
    void generateUserContactDB(const QString& userName);
    // Puts a copy of `sourcePath` in place of the user's database file; the current database
    // object keeps its path and sees the new file at its next operation. False, with the reason
    // in `error` when given and the old file kept, when the copy failed.
    [[nodiscard]] bool replaceUserContactDB(const QString& userName, const QString& sourcePath,
                                            QString* error = nullptr);
    void deleteUserContactDB(const QString& userName);
    [[nodiscard]] QString contactDBPath(const QString& userName);

    // Without a current database (nobody signed in) these do nothing and return an empty list,
    // a null string or 0.
    [[nodiscard]] QList<Contact> getContactList() const;
    [[nodiscard]] QString getNIVOIDfromCertData(const QByteArray& certData) const;
    [[nodiscard]] std::optional<ContactDB> currentContactDB() const { return m_contactDB; }
    qint64 addContact(const Contact& contact);
    void deleteContact(qint64 id);
    [[nodiscard]] QList<ContactPreset> GetContactPreset() const;
    QString saveContactPreset(const ContactPreset& preset);

    // --- backup and profile files ---

    // Writes a contact backup with the profile row first taken out of the live database, so that
    // no PKCS#12 ever leaves in a backup. False when nobody is signed in, or, with the reason in
    // `error` when given, when the copy failed.
    [[nodiscard]] bool exportContacts(const QString& path, QString* error = nullptr);
    // Writes the profile into the live database, then copies the database to `path`.
    [[nodiscard]] bool exportNivoProfileDB(const QString& path, const NivoProfile& profile,
                                           QString* error = nullptr);
    // Empty on success, otherwise the message to show; see ContactDB::importContactDB.
    [[nodiscard]] QString importContacts(const QString& path, QStringList* skipped = nullptr);
    [[nodiscard]] QString importContactMapping(const QString& path);

    // --- the user's activity log (at logPath()) ---

    void writeToLog(const QString& operationType, const QString& filePath,
                    const QStringList& recipients, const QString& status) override;
    [[nodiscard]] QList<LogEntry> getLogEntries() const;
    void viewLog() const;
    [[nodiscard]] bool exportLogFile(const QString& destinationPath,
                                     QString* error = nullptr) const;
    void clearLogFile() const;

    // --- what runs read ---

    [[nodiscard]] std::optional<NivoProfile> profile() const override { return m_profile; }
    [[nodiscard]] QString password() const override { return getNivoPassword(); }
    [[nodiscard]] QString userNivoId() const override { return getNivoUsername(); }
    [[nodiscard]] QString outputFolder(bool toEncrypt) const override;
    void setOutputFolder(bool toEncrypt, const QString& folder) override;
    [[nodiscard]] std::optional<ContactDB> contacts() const override { return m_contactDB; }

private:
    struct Folders {
        QString applicationFolder;
        QString pfxFolder;
        QString certificateFolder;
        QString contactsFolder;
        QString logFolder;
    };
    // The folder tree as last computed, computed on first use.
    const Folders& folders();
    void computeFolders();
    void computeUserPaths(const QString& userName);
    [[nodiscard]] bool credentialsAndFilesPresent();

    Folders m_folders;
    QString m_pfxPath;
    QString m_certificatePath;
    QString m_logPath;
    std::optional<NivoProfile> m_profile;
    std::optional<ContactDB> m_contactDB;
};
