#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHostAddress>
#include <QMap>
#include <QString>
#include <functional>
#include <variant>

#include "server/AccountAuthority.h"
#include "server/AccountStore.h"
#include "server/ClientThrottle.h"

// What the account service answers to each form request, without the HTTP around it. Answers
// are either plain texts that the app searches for known phrases, or JSON objects. Each request
// names the client's address, which the throttling keys on. Safe to call from several threads
// at once: the password hashing and key generation of one request do not hold up another.
class AccountService {
public:
    using Form = QMap<QString, QString>;
    using Clock = std::function<QDateTime()>;

    struct Answer {
        QByteArray body;
        QByteArray contentType;
    };

    struct Policy {
        // Shortest password accepted at sign-up, in characters.
        int minPasswordLength = 8;
        ClientThrottle::Policy throttle;
    };

    // Member of a profile answer that carries "loginname||first||last||email".
    static const QString kLoginInfoKey;

    AccountService(AccountStore& store, const AccountAuthority& authority);
    AccountService(AccountStore& store, const AccountAuthority& authority, Policy policy,
                   Clock clock = {});

    [[nodiscard]] Answer getProfile(const Form& form, const QHostAddress& client = {});
    [[nodiscard]] Answer getId(const Form& form);
    [[nodiscard]] Answer createProfile(const Form& form, const QHostAddress& client = {});
    [[nodiscard]] Answer changePassword(const Form& form, const QHostAddress& client = {});
    [[nodiscard]] Answer checkLoginName(const Form& form);
    // For requests the service cannot make sense of, and for its own failures.
    [[nodiscard]] static Answer serviceNotAvailable();

    // How long (ms) a password check for the form's "logInName" must wait for its turn while the
    // account is being guessed at; the turn is reserved. Called once before getProfile or
    // changePassword of that form. Empty when the turn is too far away: the request is to be
    // refused with tooManyAttempts().
    [[nodiscard]] std::optional<qint64> reservePasswordCheck(const Form& form,
                                                             const QHostAddress& client = {});
    [[nodiscard]] static Answer tooManyAttempts();

private:
    [[nodiscard]] QDateTime now() const;
    // The account when the password is right and the address may try; else the answer to send.
    [[nodiscard]] std::variant<AccountStore::Account, Answer> authenticate(
        const QString& loginName, const QString& password, const QHostAddress& client);

    AccountStore& m_store;
    const AccountAuthority& m_authority;
    Policy m_policy;
    Clock m_clock;
    ClientThrottle m_throttle;
};
