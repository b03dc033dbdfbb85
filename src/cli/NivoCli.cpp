#include "NivoCli.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>

#include "CliConsole.h"
#include "account/AccountServer.h"
#include "commands/ContactsCommand.h"
#include "commands/DecryptCommand.h"
#include "commands/EncryptCommand.h"
#include "commands/LogCommand.h"
#include "commands/OutlineCommand.h"
#include "commands/ProfileCommand.h"
#include "commands/SigninCommand.h"
#include "commands/SignoutCommand.h"
#include "commands/SignupCommand.h"
#include "commands/WhoamiCommand.h"
#include "log/VisibleText.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

const QString NivoCli::kApplicationName = u"nivogx-cli"_s;

namespace {

const QString kDescription =
    u"Protects files for named recipients and opens files sent to you, "
    u"on the same data as the desktop app."_s;
const QString kServerOption = u"server"_s;
const QString kServerHelp =
    u"Account server base URL (else $NIVOGX_SERVER, else the built-in one)."_s;
const QString kServerValue = u"url"_s;
const QString kCommandArgument = u"command"_s;
const QString kCommandHelp = u"The command to run; 'COMMAND --help' explains one."_s;
const QString kCommandSyntax = u"COMMAND [ARGS...]"_s;
const QString kCommandsHeading = u"Commands:"_s;
const QString kHelpCommand = u"help"_s;
const QString kHelpCommandHelp = u"Explains a command."_s;
const QString kUnknownCommand = u"Unknown command: %1"_s;
const QString kMissingCommand = u"No command given."_s;

}  // namespace

NivoCli::NivoCli(CliConsole& console)
    : m_console(console), m_messages(console), m_account(m_messages) {
    // In the order the help lists them.
    m_commands.push_back(std::make_unique<SignupCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<SigninCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<SignoutCommand>(m_messages));
    m_commands.push_back(std::make_unique<WhoamiCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<EncryptCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<DecryptCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<ContactsCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<ProfileCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<LogCommand>(m_messages, m_account));
    m_commands.push_back(std::make_unique<OutlineCommand>(m_messages));
}

NivoCli::~NivoCli() = default;

int NivoCli::run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(kDescription);
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption serverOption(kServerOption, kServerHelp, kServerValue);
    parser.addOption(serverOption);
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption versionOption = parser.addVersionOption();
    parser.addPositionalArgument(kCommandArgument, kCommandHelp);

    if (!parser.parse(arguments)) {
        m_messages.usageError(parser.errorText(), globalHelp());
        return CliCommand::UsageError;
    }
    if (parser.isSet(versionOption)) {
        m_console.out() << kApplicationName << u' ' << QCoreApplication::applicationVersion()
                        << Qt::endl;
        return CliCommand::Success;
    }
    QStringList rest = parser.positionalArguments();
    if (parser.isSet(helpOption) ||
        (!rest.isEmpty() && rest.constFirst() == kHelpCommand && rest.size() == 1)) {
        m_console.out() << globalHelp() << Qt::flush;
        return CliCommand::Success;
    }
    if (rest.isEmpty()) {
        m_messages.usageError(kMissingCommand, globalHelp());
        return CliCommand::UsageError;
    }
    if (rest.constFirst() == kHelpCommand) {
        // "help COMMAND" answers like "COMMAND --help".
        rest = {rest.at(1), u"--help"_s};
    }
    CliCommand* command = findCommand(rest.constFirst());
    if (command == nullptr) {
        m_messages.usageError(kUnknownCommand.arg(VisibleText::of(rest.constFirst())),
                              globalHelp());
        return CliCommand::UsageError;
    }
    if (parser.isSet(serverOption)) {
        AccountServer::setBaseUrl(parser.value(serverOption));
    }
    // The folder tree, as the app makes it at start, cleared of what a killed run left.
    (void)NivoGXUtil::generateRequiredDirectory();
    NivoGXUtil::removeStaleTemporaries();
    return command->execute(rest);
}

CliCommand* NivoCli::findCommand(const QString& name) const {
    for (const auto& command : m_commands) {
        if (command->name() == name) {
            return command.get();
        }
    }
    return nullptr;
}

QString NivoCli::globalHelp() const {
    QCommandLineParser parser;
    parser.setApplicationDescription(kDescription);
    parser.addOption(QCommandLineOption(kServerOption, kServerHelp, kServerValue));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(kCommandArgument, kCommandHelp, kCommandSyntax);
    QString text = parser.helpText();
    text += u'\n' + kCommandsHeading + u'\n';
    for (const auto& command : m_commands) {
        text += u"  %1 %2\n"_s.arg(command->name(), -10).arg(command->summary());
    }
    text += u"  %1 %2\n"_s.arg(kHelpCommand, -10).arg(kHelpCommandHelp);
    return text;
}
