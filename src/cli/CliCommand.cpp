#include "CliCommand.h"

#include <QFileInfo>
#include <utility>

#include "CliConsole.h"
#include "CliMessages.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const QString kJsonOption = u"json"_s;
// Where the parser's usage line goes on from the program's name.
const QString kUsageOptions = u" [options]"_s;
const QString kWrongArgumentCount = u"Wrong number of arguments."_s;
const QString kUnknownAction = u"Unknown action: %1"_s;
const QString kExportedTo = u"Exported to %1"_s;

}  // namespace

CliCommand::CliCommand(CliMessages& messages, QString name, QString summary,
                       std::optional<qsizetype> positionalCount)
    : m_messages(messages),
      m_name(std::move(name)),
      m_summary(std::move(summary)),
      m_positionalCount(positionalCount) {}

int CliCommand::execute(const QStringList& arguments) {
    declareLast();
    m_parser.setApplicationDescription(m_summary);
    const QCommandLineOption helpOption = m_parser.addHelpOption();
    if (!m_parser.parse(arguments)) {
        return usageError(m_parser.errorText());
    }
    m_messages.setJson(m_parser.optionNames().contains(kJsonOption));
    if (m_parser.isSet(helpOption)) {
        out() << helpText() << Qt::flush;
        return Success;
    }
    if (m_positionalCount && m_parser.positionalArguments().size() != *m_positionalCount) {
        return wrongArgumentCount();
    }
    return run();
}

QCommandLineOption CliCommand::option(const QStringList& names, const QString& help,
                                      const QString& valueName, const QString& defaultValue) {
    const QCommandLineOption declared(names, help, valueName, defaultValue);
    m_parser.addOption(declared);
    return declared;
}

QCommandLineOption CliCommand::jsonOption() {
    return option({kJsonOption}, u"One JSON object per line, for scripts."_s);
}

void CliCommand::argument(const QString& name, const QString& help, const QString& syntax) {
    m_parser.addPositionalArgument(name, help, syntax);
}

QTextStream& CliCommand::out() {
    return m_messages.console().out();
}

QString CliCommand::helpText() const {
    // The parser knows only the program; its usage line needs the command after it.
    QString text = m_parser.helpText();
    const qsizetype at = text.indexOf(kUsageOptions);
    if (at >= 0) {
        text.insert(at, u' ' + m_name);
    }
    return text;
}

int CliCommand::usageError(const QString& message) {
    m_messages.usageError(message, helpText());
    return UsageError;
}

int CliCommand::unknownAction(const QString& action) {
    return usageError(kUnknownAction.arg(action));
}

int CliCommand::wrongArgumentCount() {
    return usageError(kWrongArgumentCount);
}

int CliCommand::reportExport(const QString& failure, const QString& path) {
    if (!failure.isEmpty()) {
        m_messages.alert(failure, QString());
        return Failure;
    }
    m_messages.done(kExportedTo.arg(path), {{u"exported"_s, QFileInfo(path).absoluteFilePath()}});
    return Success;
}
