#include "contacts/ContactDB.h"

#include <QHash>

#include "account/NivoProfileCommon.h"
#include "contacts/PresetDetails.h"
#include "crypto/CertificateTrust.h"
#include "platform/AtomicFile.h"
#include "sqlite/SqliteDatabase.h"

using namespace Qt::Literals::StringLiterals;

const QString ContactDB::kUnableToRetrieveContacts = u"Unable to retrieve contacts from file."_s;
const QString ContactDB::kUnableToRetrieveProfile = u"Unable to retrieve NIVO Profile from file."_s;
const QString ContactDB::kInvalidUsername = u"Invalid Username"_s;
const QString ContactDB::kInvalidPassword = u"Invalid password"_s;


namespace {

using Mode = SqliteDatabase::Mode;

constexpr SqlText kCreateContact =
    "CREATE TABLE IF NOT EXISTS CONTACT(ID integer primary key autoincrement, DisplayName TEXT, "
    "NivoID TEXT, CertData BLOB)";
constexpr SqlText kCreatePreset =
    "CREATE TABLE IF NOT EXISTS PRESET(PresetID integer primary key autoincrement,Name TEXT)";
constexpr SqlText kCreatePresetMapping =
    "CREATE TABLE IF NOT EXISTS PRESETMAPPING(PresetMappingID integer primary key "
    "autoincrement, PresetID int, ID int)";
constexpr SqlText kCreateNivoProfile =
    "CREATE TABLE IF NOT EXISTS NIVOPROFILE(UserID integer primary key autoincrement, "
    "UserNivoID TEXT, PfxData BLOB)";

constexpr SqlText kSelectContactByNivoID = "select * from Contact WHERE NivoID=?";
constexpr SqlText kInsertContact =
    "insert into CONTACT (DisplayName,NivoID,CertData) values (?,?,?)";
constexpr SqlText kUpdateContact =
    "update CONTACT SET DisplayName=?,  NivoID=?, CertData=? WHERE ID=?";
constexpr SqlText kDeleteContact = "delete from CONTACT WHERE ID=?";
constexpr SqlText kDeleteContactMappings = "delete from PRESETMAPPING WHERE ID=?";
constexpr SqlText kSelectContacts = "select * from CONTACT";
constexpr SqlText kSelectContactByCertData = "select * from CONTACT WHERE CertData=?";

constexpr SqlText kSelectPresetByName = "select * from PRESET WHERE lower(Name)=?";
constexpr SqlText kInsertPreset = "insert into PRESET (Name) values (?)";
constexpr SqlText kDeletePresetMappings = "delete from PRESETMAPPING WHERE PresetID=?";
constexpr SqlText kInsertPresetMapping = "insert into PRESETMAPPING (PresetID,ID) values (?,?)";
constexpr SqlText kSelectPresets = "select * from PRESET";
constexpr SqlText kSelectPresetMappings = "select * from PRESETMAPPING WHERE PresetID=?";

constexpr SqlText kSelectFirstProfile = "select * from NIVOPROFILE WHERE UserID=1";
constexpr SqlText kInsertProfile = "insert into NIVOPROFILE (UserNivoID,PfxData) values (?,?)";
constexpr SqlText kUpdateProfile = "update NIVOPROFILE SET UserNivoID=?, PfxData=? WHERE UserID=?";
constexpr SqlText kDeleteProfiles = "delete from NIVOPROFILE";
constexpr SqlText kSelectProfiles = "select * from NIVOPROFILE";

constexpr qint64 kFailed = -1;

const QString kProfileNotRemoved = u"Cannot take the profile out of %1: %2"_s;

// The ID column is 32 bits wide in every reader of these files; reading it the same way here
// keeps row numbers identical to theirs.
Contact contactFromRow(const SqliteStatement& row) {
    Contact contact;
    contact.ID = row.columnInt("ID");
    contact.DisplayName = row.columnText("DisplayName");
    contact.NivoID = row.columnText("NivoID");
    contact.CertData = row.columnBlob("CertData");
    return contact;
}

// Presets of an open database with their members, in row order.
QList<ContactPreset> readPresets(SqliteDatabase& db) {
    QList<PresetDetails> details;
    {
        SqliteStatement rows = db.query(kSelectPresets);
        while (rows.next()) {
            details.append({rows.columnInt("PresetID"), rows.columnText("Name")});
        }
    }
    QList<ContactPreset> presets;
    presets.reserve(details.size());
    for (const PresetDetails& preset : details) {
        ContactPreset result{preset.name, {}};
        SqliteStatement rows = db.query(kSelectPresetMappings, qint64{preset.presetID});
        while (rows.next()) {
            result.contactThreadList.append(rows.columnInt("ID"));
        }
        presets.append(std::move(result));
    }
    return presets;
}

// Whether a row of another file's CONTACT table holds values of the kinds this program writes
// there, with a certificate of a believable size; anything else is not a contact of ours.
bool holdsContact(const SqliteStatement& row) {
    constexpr qint64 kMaxCertificateBytes = 64 * 1024;
    using Kind = SqliteStatement::Kind;
    return row.columnKind("NivoID") == Kind::Text && row.columnKind("DisplayName") == Kind::Text &&
           row.columnKind("CertData") == Kind::Blob &&
           row.columnBytes("CertData") <= kMaxCertificateBytes;
}

QString withoutNoError(const QString& message) {
    return message == SqliteDatabase::noErrorMessage() ? u""_s : message;
}

}  // namespace

void ContactDB::initDB(const QString& path) {
    m_defaultDBPath = path;
    SqliteDatabase db(path, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return;
    }
    for (const SqlText sql :
         {kCreateContact, kCreatePreset, kCreatePresetMapping, kCreateNivoProfile}) {
        db.execute(sql);
    }
}

qint64 ContactDB::contactExists(const QString& nivoID) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return kFailed;
    }
    SqliteStatement rows = db.query(kSelectContactByNivoID, nivoID.toLower());
    return rows.next() ? rows.columnInt("ID") : kFailed;
}

qint64 ContactDB::addContact(const Contact& contact) const {
    const qint64 existing = contactExists(contact.NivoID);
    if (existing != kFailed) {
        updateContact(contact, existing);
        return existing;
    }
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return kFailed;
    }
    db.execute(kInsertContact, contact.DisplayName, contact.NivoID.toLower(), contact.CertData);
    return db.lastInsertRowId();
}

void ContactDB::updateContact(const Contact& contact, qint64 id) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return;
    }
    db.execute(kUpdateContact, contact.DisplayName, contact.NivoID.toLower(), contact.CertData, id);
}

void ContactDB::deleteContact(qint64 id) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return;
    }
    db.execute(kDeleteContact, id);
    db.execute(kDeleteContactMappings, id);
}

QList<Contact> ContactDB::getContactList() const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    QList<Contact> contacts;
    if (!db.isOpen()) {
        return contacts;
    }
    SqliteStatement rows = db.query(kSelectContacts);
    while (rows.next()) {
        contacts.append(contactFromRow(rows));
    }
    return contacts;
}

QString ContactDB::getNIVOIDfromCertData(const QByteArray& certData) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    QString nivoID = u""_s;
    if (!db.isOpen()) {
        return nivoID;
    }
    SqliteStatement rows = db.query(kSelectContactByCertData, certData);
    while (rows.next()) {
        nivoID = rows.columnText("NivoID");
    }
    return nivoID;
}

qint64 ContactDB::addPreset(const QString& name) const {
    // A missing name (a NULL in an imported file) is the empty name: bound as NULL it would
    // never match, and every import would add another nameless preset.
    const QString lowerName = name.isNull() ? u""_s : name.toLower();
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return kFailed;
    }
    {
        SqliteStatement rows = db.query(kSelectPresetByName, lowerName);
        if (rows.next()) {
            const int presetID = rows.columnInt("PresetID");
            if (presetID != kFailed) {
                return presetID;
            }
        }
    }
    db.execute(kInsertPreset, lowerName);
    return db.lastInsertRowId();
}

QString ContactDB::saveContactPreset(const ContactPreset& preset) const {
    const qint64 presetID = addPreset(preset.name);
    if (presetID == kFailed) {
        return u""_s;
    }
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return u""_s;
    }
    db.execute(kDeletePresetMappings, presetID);
    for (const qint64 member : preset.contactThreadList) {
        db.execute(kInsertPresetMapping, presetID, member);
    }
    return db.lastErrorMessage();
}

QList<ContactPreset> ContactDB::GetContactPreset() const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    return db.isOpen() ? readPresets(db) : QList<ContactPreset>();
}

qint64 ContactDB::addNivoProfile(const NivoProfile& profile) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return kFailed;
    }
    qint64 userID = kFailed;
    {
        SqliteStatement rows = db.query(kSelectFirstProfile);
        if (rows.next()) {
            userID = rows.columnInt("UserID");
        }
    }
    if (userID == kFailed) {
        return db.execute(kInsertProfile, profile.LoginName.toLower(), profile.Pfx)
                   ? db.lastInsertRowId()
                   : kFailed;
    }
    return db.execute(kUpdateProfile, profile.LoginName.toLower(), profile.Pfx, userID) ? userID
                                                                                        : kFailed;
}

bool ContactDB::removeNivoProfile(QString* error) const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (db.isOpen() && db.execute(kDeleteProfiles)) {
        return true;
    }
    if (error != nullptr) {
        *error = kProfileNotRemoved.arg(m_defaultDBPath, db.lastErrorMessage());
    }
    return false;
}

std::optional<NivoProfile> ContactDB::GetNivoProfile() const {
    SqliteDatabase db(m_defaultDBPath, Mode::ReadWriteCreate);
    if (!db.isOpen()) {
        return std::nullopt;
    }
    std::optional<NivoProfile> profile;
    SqliteStatement rows = db.query(kSelectProfiles);
    while (rows.next()) {
        profile = NivoProfile{};
        profile->LoginName = rows.columnText("UserNivoID");
        profile->Pfx = rows.columnBlob("PfxData");
    }
    return profile;
}

bool ContactDB::exportDB(const QString& path, QString* error) const {
    // A failed copy keeps whatever the user had under that name.
    return AtomicFile::copy(m_defaultDBPath, path, error);
}

QString ContactDB::notImportedMessage(const QStringList& skipped) {
    if (skipped.isEmpty()) {
        return {};
    }
    const QString count = QString::number(skipped.size());
    return (skipped.size() == 1 ? u"1 contact was not imported, as its certificate could not be "
                                  "verified: %1."_s
                                : u"%2 contacts were not imported, as their certificates could "
                                  "not be verified: %1."_s.arg(u"%1"_s, count))
        .arg(skipped.join(u", "_s));
}

QString ContactDB::certificateProblem(const Contact& contact, const QByteArray& serviceRoot) {
    return CertificateTrust::contactCertificateProblem(
        contact.CertData, contact.NivoID,
        serviceRoot.isEmpty() ? NivoProfileCommon::getNivoRootCer() : serviceRoot);
}

QString ContactDB::importContactDB(const QString& path, const QString& currentUser,
                                   QStringList* skipped) const {
    QList<Contact> accepted;
    QString message;
    {
        SqliteDatabase source(path, Mode::ReadOnly);
        if (!source.isOpen()) {
            return u""_s;
        }
        SqliteStatement rows = source.query(kSelectContacts);
        if (source.lastErrorMessage() != SqliteDatabase::noErrorMessage()) {
            return kUnableToRetrieveContacts;
        }
        // The stored name is compared as it stands: files written by this program hold it
        // lower-cased already.
        const QString ownAccount = currentUser.toLower();
        while (rows.next()) {
            if (!holdsContact(rows)) {
                continue;
            }
            Contact contact = contactFromRow(rows);
            if (!contact.NivoID.isEmpty() && !contact.CertData.isEmpty() &&
                !contact.DisplayName.isEmpty() && contact.NivoID != ownAccount) {
                accepted.append(std::move(contact));
            }
        }
        message = source.lastErrorMessage();
    }
    // A file that breaks off part way (damaged, cut short) adds nothing: half an import would
    // leave the user guessing which contacts came over.
    if (message != SqliteDatabase::noErrorMessage()) {
        return message;
    }
    // A key is stored only when the service stands behind it; one already stored may come again
    // with a new display name.
    QHash<QString, QByteArray> stored;
    for (const Contact& contact : getContactList()) {
        stored.insert(contact.NivoID, contact.CertData);
    }
    QStringList refused;
    for (const Contact& contact : accepted) {
        const QString problem = certificateProblem(contact, m_serviceRoot);
        const auto known = stored.constFind(contact.NivoID.toLower());
        if (problem.isEmpty() || (known != stored.cend() && *known == contact.CertData)) {
            addContact(contact);
        } else {
            refused.append(u"%1 (%2)"_s.arg(contact.NivoID, problem));
        }
    }
    if (skipped != nullptr) {
        *skipped = refused;
    }
    return withoutNoError(message);
}

void ContactDB::importContactMappingDB(const QString& path) const {
    QList<ContactPreset> presets;
    {
        SqliteDatabase source(path, Mode::ReadOnly);
        if (!source.isOpen()) {
            return;
        }
        presets = readPresets(source);
    }
    for (const ContactPreset& preset : presets) {
        saveContactPreset(preset);
    }
}

NivoProfile ContactDB::importProfileDB(const QString& path, const QString& currentUser,
                                       const QString& password,
                                       const CertificateFromPfx& certificateFromPfx) {
    NivoProfile profile;
    QString message;
    {
        SqliteDatabase source(path, Mode::ReadOnly);
        if (source.isOpen()) {
            SqliteStatement rows = source.query(kSelectProfiles);
            if (source.lastErrorMessage() != SqliteDatabase::noErrorMessage()) {
                return NivoProfile::failure(kUnableToRetrieveProfile);
            }
            while (rows.next()) {
                profile.LoginName = rows.columnText("UserNivoID");
                profile.Pfx = rows.columnBlob("PfxData");
            }
            message = source.lastErrorMessage();
        }
    }
    if (profile.LoginName.isEmpty() || profile.Pfx.isEmpty()) {
        profile.StatusText = kUnableToRetrieveProfile;
        return profile;
    }
    // The file holds the name lower-cased; the user may type it in any case.
    if (profile.LoginName != currentUser.toLower()) {
        profile.StatusText = kInvalidUsername;
        return profile;
    }
    profile.Cer = certificateFromPfx ? certificateFromPfx(profile.Pfx, password) : QByteArray();
    if (profile.Cer.isEmpty()) {
        profile.StatusText = kInvalidPassword;
        return profile;
    }
    profile.StatusText = withoutNoError(message);
    return profile;
}
