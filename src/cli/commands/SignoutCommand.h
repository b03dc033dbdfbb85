#pragma once

#include "CliCommand.h"

// signout: forgets the password and the key files.
class SignoutCommand : public CliCommand {
public:
    explicit SignoutCommand(CliMessages& messages);

protected:
    [[nodiscard]] int run() override;
};
