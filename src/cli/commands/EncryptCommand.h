#pragma once

#include "FileRunCommand.h"

// encrypt: protects files for contacts and the user.
class EncryptCommand : public FileRunCommand {
public:
    EncryptCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    const QCommandLineOption m_lastUsed =
        option({QStringLiteral("last-used")},
               QStringLiteral("Encrypt for the recipients chosen last time as well."));
    const QCommandLineOption m_armor =
        option({QStringLiteral("armor")},
               QStringLiteral(
                   "Write PEM text (-----BEGIN CMS-----) instead of binary, for mail and chat."));
    const QCommandLineOption m_recipient = option(
        {QStringLiteral("r"), QStringLiteral("recipient")},
        QStringLiteral("Encrypt for this NIVO ID as well (repeatable)."), QStringLiteral("nivoid"));
};
