#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <optional>

#include "server/AccountAuthority.h"

class QSqlDatabase;

// The service's accounts, one row per login name (stored lower-cased), in a database named by a
// URL: today `sqlite:/path/accounts.db`, a file that only its owner may read (it holds every
// password hash and key file). The database records the version of its tables; open() creates
// them, brings an older database up to date and refuses a newer one. Every thread that calls in
// gets a connection of its own, so calls from several threads may overlap.
class AccountStore {
public:
    // The tables this server reads and writes. Version 0 is a database from before versions were
    // recorded.
    static constexpr int kSchemaVersion = 1;

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

    [[nodiscard]] static QString sqliteUrl(const QString& path);
    // The file of a `sqlite:` URL (absolute), or empty when the URL names no database this store
    // can use.
    [[nodiscard]] static QString sqlitePath(const QString& url);

    explicit AccountStore(QString url);
    // Closes this thread's connection; other threads close theirs when they end.
    ~AccountStore();
    AccountStore(const AccountStore&) = delete;
    AccountStore& operator=(const AccountStore&) = delete;

    // Creates the file (owner-only) and tables when absent and updates older tables, in one
    // transaction; false, with the reason in error(), when the database cannot be used.
    [[nodiscard]] bool open();
    [[nodiscard]] QString error() const { return m_error; }
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
    // This thread's open connection to the database (invalid when it cannot be opened).
    QSqlDatabase connection();
    [[nodiscard]] QString migrate(QSqlDatabase& db);

    const quint64 m_id;  // names this store's connections; never reused
    QString m_path;
    QString m_error;
};
