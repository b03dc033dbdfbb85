#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QtGlobal>
#include <functional>
#include <optional>

#include "model/Contact.h"
#include "model/ContactPreset.h"
#include "model/NivoProfile.h"

// The signed-in user's SQLite database of contacts, recipient presets and the user's own profile
// row. The same file format is the contact backup and the profile file, which are copies of it.
//
// Every operation opens its own connection, runs its statements and closes it again, so nothing
// stays open between calls and a copy of the file is always complete. Account names and preset
// names are lower-cased before they are stored or compared. Failures come back as values: -1, an
// empty string, an empty list or no profile.
class ContactDB {
public:
    static const QString kUnableToRetrieveContacts;
    static const QString kUnableToRetrieveProfile;
    static const QString kInvalidUsername;
    static const QString kInvalidPassword;
    // What to tell the user about the rows an import left out; "" when there were none.
    [[nodiscard]] static QString notImportedMessage(const QStringList& skipped);

    // Takes the certificate out of a PKCS#12 file with a password; empty when that fails.
    using CertificateFromPfx =
        std::function<QByteArray(const QByteArray& pfx, const QString& password)>;

    // Creates the file and its tables when absent and makes `path` the database of this object.
    void initDB(const QString& path);
    // The root whose certificates may become contacts' keys (DER); the compiled-in service root
    // unless told otherwise.
    void setServiceRoot(QByteArray root) { m_serviceRoot = std::move(root); }
    // "" when the contact's certificate is one the account service (`serviceRoot`, the
    // compiled-in root when empty) issued to that NIVO ID and is valid now; else a short reason.
    [[nodiscard]] static QString certificateProblem(const Contact& contact,
                                                    const QByteArray& serviceRoot = {});
    [[nodiscard]] const QString& defaultDBPath() const noexcept { return m_defaultDBPath; }

    // --- contacts ---

    // Row number of the first contact with this account name (any letter case), or -1.
    [[nodiscard]] qint64 contactExists(const QString& nivoID) const;
    // Updates the row of an account name already present, else inserts one; its row, or -1.
    qint64 addContact(const Contact& contact) const;
    void updateContact(const Contact& contact, qint64 id) const;
    // Also takes the contact out of every preset.
    void deleteContact(qint64 id) const;
    [[nodiscard]] QList<Contact> getContactList() const;
    // Account name of the last contact holding exactly this certificate; empty when none does.
    [[nodiscard]] QString getNIVOIDfromCertData(const QByteArray& certData) const;

    // --- presets ---

    // Row of the preset with this name (any letter case), created when absent; -1 on failure.
    qint64 addPreset(const QString& name) const;
    // Replaces the preset's members. SQLite's last message ("not an error" when all went well),
    // or an empty string when the database could not be used.
    QString saveContactPreset(const ContactPreset& preset) const;
    [[nodiscard]] QList<ContactPreset> GetContactPreset() const;

    // --- the user's own profile row ---

    // Writes login name and PKCS#12 into row 1 (or a first row); its UserID, or -1.
    qint64 addNivoProfile(const NivoProfile& profile) const;
    // Deletes every profile row; false, with the reason in `error` when given, when it could not.
    [[nodiscard]] bool removeNivoProfile(QString* error = nullptr) const;
    // Login name and PKCS#12 of the last row; none when the table is empty.
    [[nodiscard]] std::optional<NivoProfile> GetNivoProfile() const;

    // --- copies of the file ---

    // Copies the whole file to `path`, replacing what is there. The copy appears under its name
    // only once complete; false, with the reason in `error` when given, when it failed.
    [[nodiscard]] bool exportDB(const QString& path, QString* error = nullptr) const;
    // Adds the acceptable contacts of another database file (never the user's own account) and
    // returns an empty string, or a message for the user. The file is only read. Rows whose
    // values are not of the kinds this program writes are skipped; a file that cannot be read to
    // its end adds nothing. A certificate that fails certificateProblem() neither adds a contact
    // nor replaces a stored one: such rows are named in `skipped` ("bob (self-signed
    // certificate)") and the others imported.
    QString importContactDB(const QString& path, const QString& currentUser,
                            QStringList* skipped = nullptr) const;
    // Takes over the presets of another database file, matched by name; members are copied as
    // the row numbers they are in that file.
    void importContactMappingDB(const QString& path) const;
    // Reads the profile out of a profile file and checks it against the name and password the
    // user typed. StatusText is empty on success, else the message to show.
    [[nodiscard]] static NivoProfile importProfileDB(const QString& path,
                                                     const QString& currentUser,
                                                     const QString& password,
                                                     const CertificateFromPfx& certificateFromPfx);

private:
    QString m_defaultDBPath;
    QByteArray m_serviceRoot;
};
