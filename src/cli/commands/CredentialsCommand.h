#pragma once

#include "CliCommand.h"

class CliAccount;

// What signup and signin share: the username as the argument, and the password typed or read
// from standard input. Their own options follow --password-stdin.
class CredentialsCommand : public CliCommand {
protected:
    CredentialsCommand(CliMessages& messages, CliAccount& account, QString name, QString summary);

    // The username and password (typed twice when `confirm`), trimmed as sign-in does; false,
    // with the message printed, when there is no way to read the password.
    [[nodiscard]] bool readCredentials(bool confirm, QString& loginName, QString& password,
                                       QString& retyped);

private:
    CliAccount& m_account;
    const QCommandLineOption m_passwordStdin =
        option({QStringLiteral("password-stdin")},
               QStringLiteral("Read the password from the first line of standard input."));
};
