#pragma once

#include "CliCommand.h"

class CliAccount;

// profile: exports the user's profile for offline sign-in.
class ProfileCommand : public CliCommand {
public:
    ProfileCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    CliAccount& m_account;
};
