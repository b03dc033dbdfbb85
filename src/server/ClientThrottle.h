#pragma once

#include <QAtomicInteger>
#include <QDateTime>
#include <QHostAddress>
#include <QString>
#include <optional>

class AccountStore;

// How often a client may try a password or sign up, so that a guesser is slowed down without
// locking the account's owner out. Three kinds of record, kept as rows in the account store so
// that every server process sharing that database counts the same tries:
//
// - per account and client address: after kFreeAttempts wrong passwords in a row from one address
//   that address waits 1, 2, 4 ... seconds (up to kMaxLockSeconds) before it may try that account
//   again. Other addresses are not held up by it.
// - per account: after kAccountFreeFailures wrong passwords in a row from anywhere, password checks
//   of that account are spaced kAccountSpacingMs apart. A request that comes too early waits for
//   its turn instead of being refused, so the right password still gets in, only later.
// - per client (see clientKey): sign-ups come from a bucket of kSignUpBurst that refills at one per
//   signUpIntervalSeconds.
//
// A right password clears the account's record and that of its own address (a guesser elsewhere
// stays held back). Records of failures are forgotten after kQuietSeconds without one (and once
// they lock no one out); a sign-up record once its bucket would be full again. Safe to call from
// any thread.
class ClientThrottle {
public:
    static constexpr int kFreeAttempts = 5;
    static constexpr int kMaxLockSeconds = 15 * 60;
    static constexpr int kAccountFreeFailures = 20;
    static constexpr int kAccountSpacingMs = 1000;
    // A check whose turn is further away is refused instead (and takes no turn): the app waits
    // 10 seconds at most for an answer.
    static constexpr int kMaxWaitMs = 6000;
    static constexpr int kSignUpBurst = 5;
    static constexpr int kQuietSeconds = 24 * 60 * 60;

    struct Policy {
        // Seconds for one more sign-up from an address to be allowed; 0 turns the limit off.
        int signUpIntervalSeconds = 10 * 60;
    };

    // What one client is, for counting: an IPv4 address (also when it comes mapped into IPv6), or
    // the /64 network of an IPv6 address, since one IPv6 client has a whole /64 to pick from.
    [[nodiscard]] static QString clientKey(const QHostAddress& client);

    ClientThrottle(AccountStore& store, Policy policy);

    // Seconds the address must still wait before it may try a password for the account; 0 when
    // it may try now.
    [[nodiscard]] qint64 lockedSeconds(const QString& account, const QHostAddress& client,
                                       const QDateTime& now) const;
    // Milliseconds this password check must wait for its turn, counted from now; the turn is
    // reserved. 0 when the account is not being guessed at, and for an address that must wait
    // anyway (it is refused without a check, so it takes no turn from others). Empty, and no
    // turn taken, when the turn is more than kMaxWaitMs away.
    [[nodiscard]] std::optional<qint64> reserveCheck(const QString& account,
                                                     const QHostAddress& client,
                                                     const QDateTime& now);
    void recordFailure(const QString& account, const QHostAddress& client, const QDateTime& now);
    void recordSuccess(const QString& account, const QHostAddress& client);

    // True (and one sign-up counted) when the address may sign up now; empty when the store
    // cannot count it.
    [[nodiscard]] std::optional<bool> takeSignUp(const QHostAddress& client, const QDateTime& now);

private:
    // At most once an hour per process: drops the records that no longer hold anyone back.
    void forgetQuiet(qint64 now);

    AccountStore& m_store;
    Policy m_policy;
    QAtomicInteger<qint64> m_lastForgotten = 0;
};
