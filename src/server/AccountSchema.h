#pragma once

#include <QString>

class AccountDatabase;
class QSqlDatabase;

// The tables of the account database and the version recorded with them. Version 0 is a
// database from before versions were recorded; 1 has the accounts only; 2 adds the serial counter
// and the throttling records.
class AccountSchema {
public:
    static constexpr int kVersion = 2;

    explicit AccountSchema(AccountDatabase& database) : m_database(database) {}

    // Creates the tables when absent and brings older ones up to date, in one transaction that
    // one process at a time may run; refuses tables newer than kVersion. Empty when done, else
    // why not.
    [[nodiscard]] QString update();

private:
    [[nodiscard]] QString migrate(QSqlDatabase& db);

    AccountDatabase& m_database;
};
