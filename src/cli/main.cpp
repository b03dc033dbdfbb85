#include <QCoreApplication>
#include <QLoggingCategory>

#include "NivoCli.h"
#include "storage/CachingSecretStore.h"
#include "storage/QKKeychain.h"
#include "storage/QtKeychainStore.h"

using namespace Qt::Literals::StringLiterals;

int main(int argc, char* argv[]) {
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(NivoCli::kApplicationName);
    QCoreApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));
    // Standard error carries the outcomes that scripts read; the core's diagnostics would only
    // repeat them in other words. QT_LOGGING_RULES still turns them on.
    QLoggingCategory::setFilterRules(u"nivogx.*=false"_s);
    // One command per process: the keychain's answers hold for its length, and asking the
    // desktop's store again for each of the many reads of the same record costs a round trip.
    setDefaultKeychain(std::make_unique<CachingSecretStore>(std::make_unique<QtKeychainStore>()));
    CliConsole console;
    NivoCli cli(console);
    return cli.run(QCoreApplication::arguments());
}
