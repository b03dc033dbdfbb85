// Writes seed inputs with the program's own code: a protected file, an activity log, a contact
// backup and a profile file. Used by fuzz/make-corpus; the key files come from fuzz/keys.
//
//   nivogx-fuzz-seeds KEYS_DIR CORPUS_DIR
#include <QDir>
#include <QFile>
#include <cstdio>

#include "FuzzSupport.h"
#include "contacts/ContactDB.h"
#include "crypto/NivoCryptoOperation.h"
#include "log/ActivityLog.h"

using namespace Qt::Literals::StringLiterals;

namespace {

void writeSeed(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(path.section(u'/', 0, -2));
    if (!FuzzSupport::writeFile(path, bytes)) {
        FuzzSupport::fail(u"cannot write "_s + path);
    }
    std::printf("%s (%lld bytes)\n", qPrintable(path), static_cast<long long>(bytes.size()));
}

// A protected file for the fixed user and the peer, signed by the user, as the app writes it.
void protectedFile(const QString& keys, const QString& corpus) {
    const QString out = FuzzSupport::scratchPath(u"seed.tvf"_s);
    const FuzzSupport::FixedUser& user = FuzzSupport::fixedUser();
    (void)NivoCryptoOperation::encryptData("Quarterly figures\n"_ba, user.profile, user.password,
                                           {FuzzSupport::readFile(keys + u"/fuzz-peer.cer"_s)},
                                           out);
    writeSeed(corpus + u"/cms_decrypt/ours-for-peer-and-user.tvf"_s, FuzzSupport::readFile(out));
}

// Every kind of line the log holds, and the kinds the reader must skip.
void activityLog(const QString& corpus) {
    const QString path = FuzzSupport::scratchPath(u"seed.log"_s);
    const ActivityLog log(path);
    log.writeToLog(u"Encrypt"_s, u"/home/fuzz/report.pdf"_s, {u"bob"_s, u"fuzz-user"_s},
                   u"Success"_s);
    log.writeToLog(u"Decrypt"_s, u"/home/fuzz/in/report.pdf.tvf"_s, {u"bob"_s}, u"Failed"_s);
    log.writeToLog(u"Decrypt"_s, u"/home/fuzz/odd | name.tvf"_s, {}, u"Cancelled"_s);
    log.writeToLog(u"Encrypt"_s, u"/home/fuzz/"_s + QString(600, u'x') + u".txt"_s,
                   {u"fuzz-user"_s}, u"Success"_s);
    writeSeed(corpus + u"/log_reader/activity.log"_s, FuzzSupport::readFile(path));
}

// A contact backup with contacts, a preset and the user's own row, and a profile file.
void contactFiles(const QString& keys, const QString& corpus) {
    const QString path = FuzzSupport::scratchPath(u"Contact_fuzz-user.db"_s);
    ContactDB db;
    db.initDB(path);
    const qint64 peer = db.addContact(
        {0, u"fuzz-peer"_s, u"Fuzz Peer"_s, FuzzSupport::readFile(keys + u"/fuzz-peer.cer"_s)});
    const qint64 other = db.addContact(
        {0, u"fuzz-other"_s, u"Fuzz Other"_s, FuzzSupport::readFile(keys + u"/fuzz-other.cer"_s)});
    (void)db.addContact({0, u"fuzz-user"_s, u"Me"_s, FuzzSupport::fixedUser().profile.Cer});
    (void)db.saveContactPreset({u"Last used contacts"_s, {peer, other}});

    NivoProfile profile = FuzzSupport::fixedUser().profile;
    (void)db.addNivoProfile(profile);
    writeSeed(corpus + u"/contact_backup/profile.vts"_s, FuzzSupport::readFile(path));
    if (db.removeNivoProfile()) {
        writeSeed(corpus + u"/contact_backup/contacts.cbkm"_s, FuzzSupport::readFile(path));
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s KEYS_DIR CORPUS_DIR\n", argv[0]);
        return 2;
    }
    FuzzSupport::quietQt();
    const QString keys = QFile::decodeName(argv[1]);
    const QString corpus = QFile::decodeName(argv[2]);
    protectedFile(keys, corpus);
    activityLog(corpus);
    contactFiles(keys, corpus);
    return 0;
}
