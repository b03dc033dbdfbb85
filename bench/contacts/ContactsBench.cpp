// Figures for the contact database and the activity log at the sizes a long-time user reaches:
// listing 10,000 contacts, naming a sender among them, and reading a 100,000-line log.
// Run: build/bench/contacts/bench_contacts [folder for the scratch files]
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>
#include <functional>

#include "BenchClock.h"
#include "BenchData.h"
#include "contacts/ContactDB.h"
#include "log/ActivityLog.h"
#include "sqlite/SqliteDatabase.h"

namespace {

constexpr int kContacts = 10'000;
constexpr int kLogLines = 100'000;
constexpr int kRuns = 7;
constexpr qsizetype kCertificateSize = 1'200;  // a typical DER certificate

QByteArray certificate(int n) {
    QByteArray cert(kCertificateSize, '\x30');
    const QByteArray tag = QByteArray::number(n);
    cert.replace(kCertificateSize - tag.size(), tag.size(), tag);
    return cert;
}

void report(QTextStream& out, const QString& what, const std::function<qsizetype()>& run) {
    out << what << ": " << BenchClock::describe(BenchClock::time(kRuns, run)) << "\n";
    out.flush();
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QTemporaryDir scratch(
        argc > 1 ? QDir(QString::fromLocal8Bit(argv[1])).filePath(QStringLiteral("bench-XXXXXX"))
                 : QDir::tempPath() + QStringLiteral("/bench-XXXXXX"));

    ContactDB db;
    db.initDB(scratch.filePath(QStringLiteral("Contact_bench.db")));
    {
        // Filling goes through one transaction; the operations measured below do not.
        SqliteDatabase fill(db.defaultDBPath(), SqliteDatabase::Mode::ReadWriteCreate);
        fill.execute("BEGIN");
        for (int i = 0; i < kContacts; ++i) {
            fill.execute("insert into CONTACT (DisplayName,NivoID,CertData) values (?,?,?)",
                         QStringLiteral("Contact %1").arg(i), QStringLiteral("user.%1").arg(i),
                         certificate(i));
        }
        fill.execute("COMMIT");
    }
    out << "contact database: " << QFileInfo(db.defaultDBPath()).size() / 1024 << " KiB\n";
    report(out, QStringLiteral("getContactList, 10,000 contacts"),
           [&db] { return db.getContactList().size(); });
    report(out, QStringLiteral("getNIVOIDfromCertData, last of 10,000"), [&db] {
        return db.getNIVOIDfromCertData(certificate(kContacts - 1)).isEmpty() ? 0 : 1;
    });
    report(out, QStringLiteral("addContact x100 (existing accounts, one connection each)"), [&db] {
        for (int i = 0; i < 100; ++i) {
            db.addContact(
                {0, QStringLiteral("user.%1").arg(i), QStringLiteral("Renamed"), certificate(i)});
        }
        return qsizetype{100};
    });

    ActivityLog log(scratch.filePath(QStringLiteral("bench.log")));
    BenchData::writeActivityLog(log.path(), kLogLines);
    out << "activity log: " << QFileInfo(log.path()).size() / 1024 << " KiB\n";
    report(out, QStringLiteral("getLogEntries, 100,000 lines"),
           [&log] { return log.getLogEntries().size(); });
    return 0;
}
