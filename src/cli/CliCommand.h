#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <QTextStream>
#include <optional>

class CliMessages;

// One command of nivogx-cli: its name, a line that sums it up, its options and arguments, each
// declared with its help beside it, and run() giving the exit status: 0 when everything
// succeeded, 1 when an operation failed, 2 for a usage error.
class CliCommand {
public:
    enum Exit { Success = 0, Failure = 1, UsageError = 2, Interrupted = 130 };

    virtual ~CliCommand() = default;
    CliCommand(const CliCommand&) = delete;
    CliCommand& operator=(const CliCommand&) = delete;

    [[nodiscard]] const QString& name() const noexcept { return m_name; }
    [[nodiscard]] const QString& summary() const noexcept { return m_summary; }

    // Parses `arguments` (the command's name first), answers --help or reports a usage error,
    // else runs the command. The exit status.
    [[nodiscard]] int execute(const QStringList& arguments);

protected:
    // With `positionalCount`, any other number of arguments is a usage error.
    CliCommand(CliMessages& messages, QString name, QString summary,
               std::optional<qsizetype> positionalCount = std::nullopt);

    // Declares an option; the help lists them in the order declared.
    QCommandLineOption option(const QStringList& names, const QString& help,
                              const QString& valueName = QString(),
                              const QString& defaultValue = QString());
    // Declares an option held by the command.
    void declare(const QCommandLineOption& option) { m_parser.addOption(option); }
    // --json, the same for every command that has it.
    QCommandLineOption jsonOption();
    void argument(const QString& name, const QString& help, const QString& syntax);
    // Declares what comes after the command's own options and arguments.
    virtual void declareLast() {}

    [[nodiscard]] virtual int run() = 0;

    [[nodiscard]] const QCommandLineParser& parser() const noexcept { return m_parser; }
    [[nodiscard]] QStringList positional() const { return m_parser.positionalArguments(); }
    [[nodiscard]] CliMessages& messages() noexcept { return m_messages; }
    [[nodiscard]] QTextStream& out();

    // The command's help, its name in the usage line.
    [[nodiscard]] QString helpText() const;
    // Reports a usage error followed by the help, and gives UsageError.
    int usageError(const QString& message);
    int unknownAction(const QString& action);
    int wrongArgumentCount();
    // Where an export went, or why it failed.
    int reportExport(const QString& failure, const QString& path);

private:
    CliMessages& m_messages;
    QString m_name;
    QString m_summary;
    std::optional<qsizetype> m_positionalCount;
    QCommandLineParser m_parser;
};
