#pragma once

#include "CliCommand.h"

class CliAccount;

// signin: signs in online, or offline from an exported profile file.
class SigninCommand : public CliCommand {
public:
    SigninCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    CliAccount& m_account;
    const QCommandLineOption m_passwordStdin =
        option({QStringLiteral("password-stdin")},
               QStringLiteral("Read the password from the first line of standard input."));
    const QCommandLineOption m_profileFile = option(
        {QStringLiteral("profile-file")},
        QStringLiteral("Sign in offline from an exported profile file."), QStringLiteral("file"));
};
