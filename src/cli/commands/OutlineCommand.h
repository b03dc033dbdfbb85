#pragma once

#include "CliCommand.h"

// inspect: shows the layers, algorithms and recipients of a protected file without opening it.
class OutlineCommand : public CliCommand {
public:
    explicit OutlineCommand(CliMessages& messages);

protected:
    [[nodiscard]] int run() override;

private:
    const QCommandLineOption m_json = jsonOption();
};
