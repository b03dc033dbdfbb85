#pragma once

#include "CliCommand.h"

class CliAccount;

// log: lists, exports or clears the user's activity log.
class LogCommand : public CliCommand {
public:
    LogCommand(CliMessages& messages, CliAccount& account);

protected:
    [[nodiscard]] int run() override;

private:
    CliAccount& m_account;
    const QCommandLineOption m_type =
        option({QStringLiteral("type")}, QStringLiteral("Only this operation: encrypt or decrypt."),
               QStringLiteral("type"));
    const QCommandLineOption m_column =
        option({QStringLiteral("column")},
               QStringLiteral("Column to search: Date, Time, File, Recipient or Status."),
               QStringLiteral("column"), defaultColumn());
    const QCommandLineOption m_search =
        option({QStringLiteral("search")},
               QStringLiteral("Only entries whose column contains this text (any case)."),
               QStringLiteral("text"));
    const QCommandLineOption m_sort =
        option({QStringLiteral("sort")},
               QStringLiteral("Sort by Date, Time, Type, File, Recipient or Status."),
               QStringLiteral("column"));
    const QCommandLineOption m_desc =
        option({QStringLiteral("desc")}, QStringLiteral("Sort in descending order."));
    const QCommandLineOption m_json = jsonOption();

    [[nodiscard]] static QString defaultColumn();
};
