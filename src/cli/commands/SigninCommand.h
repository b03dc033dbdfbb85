#pragma once

#include "CredentialsCommand.h"

// signin: signs in online, or offline from an exported profile file.
class SigninCommand : public CredentialsCommand {
public:
    SigninCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    const QCommandLineOption m_profileFile = option(
        {QStringLiteral("profile-file")},
        QStringLiteral("Sign in offline from an exported profile file."), QStringLiteral("file"));
};
