#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>

#include "session/Session.h"
#include "shell/AppDelegate.h"
#include "shell/DialogPrompter.h"
#include "shell/IconSet.h"
#include "shell/NIVOGXService.h"
#include "shell/NotificationHub.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kDescription =
    QT_TRANSLATE_NOOP("main", "Protects files for named recipients and opens files sent to you.");
const char* const kFilesArgument = QT_TRANSLATE_NOOP("main", "Files to add to the list.");

}  // namespace

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"NIVO-GX"_s);
    QApplication::setOrganizationName(u"NIVO-GX"_s);
    QApplication::setApplicationVersion(QStringLiteral(NIVOGX_VERSION));
    // Ties the windows to the installed desktop entry, whose icon the desktop shows for them.
    QGuiApplication::setDesktopFileName(u"nivogx"_s);
    QApplication::setWindowIcon(IconSet::named(IconSet::kApplication));
    // The windows decide when the application ends: closing the sign-in window or the main
    // window quits, the sign-in window closing after a sign-in does not.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(QCoreApplication::translate("main", kDescription));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(u"files"_s, QCoreApplication::translate("main", kFilesArgument),
                                 u"[file...]"_s);
    parser.process(app);

    QStringList files;
    for (const QString& argument : parser.positionalArguments()) {
        files << QFileInfo(argument).absoluteFilePath();
    }
    // One instance per desktop user: a later launch hands its files to the running one.
    const QString serviceName = NIVOGXService::defaultName();
    if (NIVOGXService::handOver(serviceName, files)) {
        return 0;
    }

    Session::makeCurrent(std::make_shared<Session>());
    NotificationHub hub;
    DialogPrompter prompter;
    AppDelegate delegate(hub, prompter);
    QObject::connect(&delegate, &AppDelegate::terminateRequested, &app, &QCoreApplication::quit,
                     Qt::QueuedConnection);

    // Files named at start arrive before the launch decision, as files opened with the
    // application do: one file on its own, several as a list.
    if (files.size() == 1) {
        delegate.application(files.constFirst());
    } else if (files.size() > 1) {
        delegate.application(files);
    }
    delegate.setServiceName(serviceName);
    delegate.setHelpFile(QDir::cleanPath(QDir(QCoreApplication::applicationDirPath())
                                             .filePath(QStringLiteral(NIVOGX_DOC_FROM_BIN))) +
                         u"/README.md"_s);
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
