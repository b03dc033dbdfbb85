// A contact backup (".cbkm") or profile file (".vts") chosen by the user: an SQLite file from
// anywhere, imported into a fresh contact database. The file itself must stay as it was, and
// nothing unacceptable may reach the user's contacts.
#include <QDir>
#include <QFile>
#include <QSet>

#include "FuzzSupport.h"
#include "account/NivoProfileUtil.h"
#include "contacts/ContactDB.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kUser = u"fuzz-user"_s;

// A live database holding one contact, made once; each run starts from a copy of its bytes.
const QByteArray& freshDatabase() {
    static const QByteArray bytes = [] {
        const QString path = FuzzSupport::scratchPath(u"template.db"_s);
        ContactDB db;
        db.initDB(path);
        (void)db.addContact({0, u"carol"_s, u"Carol"_s, QByteArray("carol's certificate")});
        const QByteArray made = FuzzSupport::readFile(path);
        QFile::remove(path);
        return made;
    }();
    return bytes;
}

void checkContacts(const ContactDB& db) {
    QSet<QString> seen;
    for (const Contact& contact : db.getContactList()) {
        FUZZ_CHECK(!contact.NivoID.isEmpty() && !contact.DisplayName.isEmpty() &&
                       !contact.CertData.isEmpty(),
                   u"an incomplete contact was imported: "_s + contact.NivoID);
        FUZZ_CHECK(contact.NivoID == contact.NivoID.toLower(),
                   u"an account name kept its capitals: "_s + contact.NivoID);
        FUZZ_CHECK(contact.NivoID != kUser, u"the user became his own contact"_s);
        FUZZ_CHECK(!seen.contains(contact.NivoID), u"two contacts share "_s + contact.NivoID);
        seen.insert(contact.NivoID);
    }
    QSet<QString> presets;
    for (const ContactPreset& preset : db.GetContactPreset()) {
        FUZZ_CHECK(!presets.contains(preset.name.toLower()), u"two presets share "_s + preset.name);
        presets.insert(preset.name.toLower());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzSupport::quietQt();
    const QByteArray bytes = FuzzSupport::bytesOf(data, size);
    // The chosen file sits alone in its folder, so that anything written next to it shows.
    const QString folder = FuzzSupport::scratchPath(u"chosen"_s);
    QDir().mkpath(folder);
    const QString backup = folder + u"/contacts.cbkm"_s;
    FUZZ_CHECK(FuzzSupport::writeFile(backup, bytes), u"cannot write the backup"_s);
    const QString live = FuzzSupport::scratchPath(u"Contact_fuzz-user.db"_s);
    FUZZ_CHECK(FuzzSupport::writeFile(live, freshDatabase()), u"cannot write the database"_s);

    ContactDB db;
    db.initDB(live);
    const QString message = db.importContactDB(backup, kUser);
    FUZZ_CHECK(!message.isNull(), u"the import gave no message"_s);
    db.importContactMappingDB(backup);
    checkContacts(db);

    const NivoProfile profile = ContactDB::importProfileDB(
        backup, kUser.toUpper(), FuzzSupport::fixedUser().password,
        [](const QByteArray& pfx, const QString& password) {
            return NivoProfileUtil::extractCerFromPfx(pfx, password).value_or(QByteArray());
        });
    if (profile.StatusText.isEmpty()) {
        FUZZ_CHECK(!profile.StatusText.isNull(), u"a profile without status text"_s);
        FUZZ_CHECK(profile.LoginName == kUser && !profile.Pfx.isEmpty() && !profile.Cer.isEmpty(),
                   u"an accepted profile is not the user's"_s);
    }

    FUZZ_CHECK(FuzzSupport::readFile(backup) == bytes, u"the chosen file was changed"_s);
    FUZZ_CHECK(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot) ==
                   QStringList{u"contacts.cbkm"_s},
               u"something was written next to the chosen file"_s);
    QFile::remove(backup);
    QFile::remove(live);
    return 0;
}
