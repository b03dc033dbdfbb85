#pragma once

#include "FileRunCommand.h"

// decrypt: opens protected files sent to the user.
class DecryptCommand : public FileRunCommand {
public:
    DecryptCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    const QCommandLineOption m_requireVerified = option(
        {QStringLiteral("require-verified")},
        QStringLiteral("Fail, leaving no output, when the sender's certificate was not issued by "
                       "the account service (or was not valid when the file was signed)."));
};
