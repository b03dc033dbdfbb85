#include <QCoreApplication>
#include <QLoggingCategory>

#include "NivoCli.h"

using namespace Qt::Literals::StringLiterals;

int main(int argc, char* argv[]) {
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(NivoCli::kApplicationName);
    QCoreApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));
    // Standard error carries the outcomes that scripts read; the core's diagnostics would only
    // repeat them in other words. QT_LOGGING_RULES still turns them on.
    QLoggingCategory::setFilterRules(u"nivogx.*=false"_s);
    CliConsole console;
    NivoCli cli(console);
    return cli.run(QCoreApplication::arguments());
}
