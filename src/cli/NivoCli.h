#pragma once

#include <QString>
#include <QStringList>
#include <memory>
#include <vector>

#include "CliAccount.h"
#include "CliCommand.h"
#include "CliMessages.h"

class CliConsole;

// nivogx-cli over the core, on the same folders, database, log and credential store as the
// desktop app: the global options, then the command named, which parses the rest.
class NivoCli {
public:
    static const QString kApplicationName;

    explicit NivoCli(CliConsole& console);
    ~NivoCli();
    NivoCli(const NivoCli&) = delete;
    NivoCli& operator=(const NivoCli&) = delete;

    // `arguments` as the process got them, program name first. The exit status.
    [[nodiscard]] int run(const QStringList& arguments);

private:
    [[nodiscard]] CliCommand* findCommand(const QString& name) const;
    [[nodiscard]] QString globalHelp() const;

    CliConsole& m_console;
    CliMessages m_messages;
    CliAccount m_account;
    std::vector<std::unique_ptr<CliCommand>> m_commands;
};
