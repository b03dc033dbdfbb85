#include <QCoreApplication>
#include <QLoggingCategory>
#include <cstdio>

#include "CliConsole.h"
#include "NivoCli.h"
#include "platform/CachingSecretStore.h"
#include "platform/QKKeychain.h"
#include "platform/QtKeychainStore.h"
#include "session/Session.h"

using namespace Qt::Literals::StringLiterals;

int main(int argc, char* argv[]) {
    // What Qt and the core say on standard error goes out under the program's name, as the
    // tool's own messages do.
    qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            QByteArray text;
            for (const QString& line : qFormatLogMessage(type, context, message).split(u'\n')) {
                text += "nivogx-cli: " + line.toLocal8Bit() + '\n';
            }
            std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stderr);
        });
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(NivoCli::kApplicationName);
    QCoreApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));
    // Standard error carries the outcomes that scripts read; the core's diagnostics would only
    // repeat them in other words. QT_LOGGING_RULES still turns them on.
    QLoggingCategory::setFilterRules(u"nivogx.*=false"_s);
    // One command per process: the keychain's answers hold for its length, and asking the
    // desktop's store again for each of the many reads of the same record costs a round trip.
    setDefaultKeychain(std::make_unique<CachingSecretStore>(std::make_unique<QtKeychainStore>()));
    Session::makeCurrent(std::make_shared<Session>());
    CliConsole console;
    NivoCli cli(console);
    return cli.run(QCoreApplication::arguments());
}
