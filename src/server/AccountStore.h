#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

#include "server/AccountAuthority.h"

// The service's accounts, one row per login name (stored lower-cased), in an SQLite file.
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
    };

    explicit AccountStore(QString databasePath);

    // Creates the file and table when absent; false when the file cannot be used.
    [[nodiscard]] bool open();
    // False when the name is taken or the write failed.
    [[nodiscard]] bool insert(const Account& account);
    [[nodiscard]] std::optional<Account> find(const QString& loginName);
    [[nodiscard]] bool exists(const QString& loginName);
    [[nodiscard]] bool updateCredentials(const QString& loginName,
                                         const AccountAuthority::PasswordHash& password,
                                         const QByteArray& pfx);

private:
    QString m_path;
};
