#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QMap>
#include <QString>
#include <functional>
#include <variant>

#include "server/AccountAuthority.h"
#include "server/AccountStore.h"

// What the account service answers to each form request, without the HTTP around it. Answers
// are either plain texts that the app searches for known phrases, or JSON objects.
class AccountService {
public:
    using Form = QMap<QString, QString>;
    using Clock = std::function<QDateTime()>;

    struct Answer {
        QByteArray body;
        QByteArray contentType;
    };

    // Member of a profile answer that carries "loginname||first||last||email".
    static const QString kLoginInfoKey;
    // Wrong passwords in a row for one name before it is locked for a while.
    static constexpr int kFreeAttempts = 5;
    static constexpr int kMaxLockSeconds = 15 * 60;

    AccountService(AccountStore& store, const AccountAuthority& authority, Clock clock = {});

    [[nodiscard]] Answer getProfile(const Form& form);
    [[nodiscard]] Answer getId(const Form& form);
    [[nodiscard]] Answer createProfile(const Form& form);
    [[nodiscard]] Answer changePassword(const Form& form);
    [[nodiscard]] Answer checkLoginName(const Form& form);
    // For requests the service cannot make sense of, and for its own failures.
    [[nodiscard]] static Answer serviceNotAvailable();

private:
    struct Attempts {
        int failures = 0;
        QDateTime lockedUntil;
    };

    [[nodiscard]] QDateTime now() const;
    // Empty when the name may try a password now; else the refusal to send.
    [[nodiscard]] std::optional<Answer> refuseWhileLocked(const QString& loginName) const;
    // The account when the password is right and the name not locked; else the answer to send.
    [[nodiscard]] std::variant<AccountStore::Account, Answer> authenticate(const QString& loginName,
                                                                          const QString& password);
    void recordFailure(const QString& loginName);
    void recordSuccess(const QString& loginName);

    AccountStore& m_store;
    const AccountAuthority& m_authority;
    Clock m_clock;
    QHash<QString, Attempts> m_attempts;
};
