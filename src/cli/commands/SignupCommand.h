#pragma once

#include "CliCommand.h"

class CliAccount;

// signup: creates an account on the account server.
class SignupCommand : public CliCommand {
public:
    SignupCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    CliAccount& m_account;
    const QCommandLineOption m_passwordStdin =
        option({QStringLiteral("password-stdin")},
               QStringLiteral("Read the password from the first line of standard input."));
};
