#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

#include "server/AccountAuthority.h"

// The service's accounts, one row per login name (stored lower-cased), in an SQLite file that only
// its owner may read (it holds every password hash and key file). Each call opens its own
// connection, so calls from several threads may overlap.
class AccountStore {
public:
    struct Account {
        QString loginName;
        QString firstName;
        QString lastName;
        QString email;
        AccountAuthority::PasswordHash password;
        QByteArray pfx;
        QByteArray certificate;
        bool disabled = false;  // kept, but not found by sign-ins and look-ups
    };

    explicit AccountStore(QString databasePath);

    // Creates the file (owner-only) and table when absent; false when the file cannot be used.
    [[nodiscard]] bool open();
    // True when the database answers a query.
    [[nodiscard]] bool isHealthy();
    // False when the name is taken or the write failed.
    [[nodiscard]] bool insert(const Account& account);
    [[nodiscard]] std::optional<Account> find(const QString& loginName);
    [[nodiscard]] bool exists(const QString& loginName);
    [[nodiscard]] bool updateCredentials(const QString& loginName,
                                         const AccountAuthority::PasswordHash& password,
                                         const QByteArray& pfx);

    // For the operator: every login name with its state and creation time, by name.
    struct Listed {
        QString loginName;
        QString email;
        QString created;
        bool disabled = false;
    };
    [[nodiscard]] QList<Listed> list();
    // False when there is no such account or the write failed.
    [[nodiscard]] bool setDisabled(const QString& loginName, bool disabled);
    [[nodiscard]] bool remove(const QString& loginName);

private:
    QString m_path;
};
