#pragma once

#include "CredentialsCommand.h"

// signup: creates an account on the account server.
class SignupCommand : public CredentialsCommand {
public:
    SignupCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;
};
