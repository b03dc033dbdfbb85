#pragma once

#include "CliCommand.h"

class CliAccount;

// whoami: prints the signed-in username.
class WhoamiCommand : public CliCommand {
public:
    WhoamiCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    CliAccount& m_account;
    const QCommandLineOption m_verbose =
        option({QStringLiteral("verbose")},
               QStringLiteral("Also show the fingerprint of your certificate."));
};
