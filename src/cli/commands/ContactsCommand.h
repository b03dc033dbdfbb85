#pragma once

#include "CliCommand.h"

class CliAccount;

// contacts: lists, shows, adds, removes, exports or imports the user's contacts.
class ContactsCommand : public CliCommand {
public:
    ContactsCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    int list();
    int show(const QString& typed);
    int add(const QString& typed);
    int remove(const QString& typed);
    int import(const QString& path);

    CliAccount& m_account;
    const QCommandLineOption m_json = jsonOption();
};
