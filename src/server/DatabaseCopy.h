#pragma once

#include <QString>
#include <QStringList>

class AccountDatabase;

// Copies what one account database holds that another lacks: accounts by name, throttling
// records by key, and the serial counter raised to at least that of the source.
class DatabaseCopy {
public:
    DatabaseCopy(AccountDatabase& from, AccountDatabase& to) : m_from(from), m_to(to) {}

    // In one transaction on the target. Empty when done, else why not; `report` gets one line
    // per table: copied, already there, total.
    [[nodiscard]] QString run(QStringList* report);

private:
    AccountDatabase& m_from;
    AccountDatabase& m_to;
};
