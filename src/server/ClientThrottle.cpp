#include "server/ClientThrottle.h"

#include <algorithm>

#include "server/AccountStore.h"

namespace {

constexpr qint64 kForgetEveryMs = 60 * 60 * 1000;

}  // namespace

QString ClientThrottle::clientKey(const QHostAddress& client) {
    bool isV4 = false;
    const quint32 v4 = client.toIPv4Address(&isV4);
    if (isV4) {
        return QHostAddress(v4).toString();
    }
    Q_IPV6ADDR bytes = client.toIPv6Address();
    std::fill(std::begin(bytes.c) + 8, std::end(bytes.c), quint8{0});
    return QHostAddress(bytes).toString() + QStringLiteral("/64");
}

ClientThrottle::ClientThrottle(AccountStore& store, Policy policy)
    : m_store(store), m_policy(policy) {}

qint64 ClientThrottle::lockedSeconds(const QString& account, const QHostAddress& client,
                                     const QDateTime& now) const {
    const qint64 at = now.toMSecsSinceEpoch();
    const auto pair = m_store.pairRecord(account, clientKey(client));
    if (!pair || pair->lockedUntil <= at) {
        return 0;
    }
    return std::max<qint64>(1, (pair->lockedUntil - at + 999) / 1000);
}

std::optional<qint64> ClientThrottle::reserveCheck(const QString& account,
                                                   const QHostAddress& client,
                                                   const QDateTime& now) {
    if (lockedSeconds(account, client, now) > 0) {
        return 0;
    }
    // Most accounts are not being guessed at: one read, no lock.
    const auto seen = m_store.accountRecord(account);
    if (!seen || seen->failures < kAccountFreeFailures) {
        return 0;
    }
    const qint64 at = now.toMSecsSinceEpoch();
    std::optional<qint64> wait = 0;
    (void)m_store.changeAccount(account, [&](AccountStore::AccountRecord& record) {
        if (record.failures < kAccountFreeFailures) {
            return false;
        }
        const qint64 turn = std::max(record.nextCheck, at);
        if (turn - at > kMaxWaitMs) {
            wait = std::nullopt;
            return false;
        }
        record.nextCheck = turn + kAccountSpacingMs;
        wait = turn - at;
        return true;
    });
    return wait;
}

void ClientThrottle::recordFailure(const QString& account, const QHostAddress& client,
                                   const QDateTime& now) {
    const qint64 at = now.toMSecsSinceEpoch();
    forgetQuiet(at);
    (void)m_store.changePair(account, clientKey(client), [&](AccountStore::PairRecord& pair) {
        ++pair.failures;
        pair.lastFailure = at;
        if (pair.failures >= kFreeAttempts) {
            // 1, 2, 4, ... seconds, up to the cap: slow for a guesser, short for a typo.
            const qint64 exponent = std::min<qint64>(pair.failures - kFreeAttempts, 20);
            pair.lockedUntil = at + 1000 * std::min<qint64>(qint64{1} << exponent, kMaxLockSeconds);
        }
        return true;
    });
    (void)m_store.changeAccount(account, [&](AccountStore::AccountRecord& record) {
        ++record.failures;
        record.lastFailure = at;
        return true;
    });
}

void ClientThrottle::recordSuccess(const QString& account, const QHostAddress& client) {
    m_store.forgetFailures(account, clientKey(client));
}

std::optional<bool> ClientThrottle::takeSignUp(const QHostAddress& client, const QDateTime& now) {
    if (m_policy.signUpIntervalSeconds <= 0) {
        return true;
    }
    const qint64 at = now.toMSecsSinceEpoch();
    const double interval = m_policy.signUpIntervalSeconds;
    bool allowed = false;
    const bool counted = m_store.changeSignUps(
        clientKey(client), kSignUpBurst, [&](AccountStore::SignUpRecord& record) {
            if (record.updated != 0) {
                const double refill = static_cast<double>(at - record.updated) / 1000.0 / interval;
                record.tokens =
                    std::min<double>(kSignUpBurst, record.tokens + std::max(0.0, refill));
            }
            record.updated = at;
            allowed = record.tokens >= 1.0;
            if (allowed) {
                record.tokens -= 1.0;
            }
            return true;
        });
    if (!counted) {
        return std::nullopt;
    }
    return allowed;
}

void ClientThrottle::forgetQuiet(qint64 now) {
    const qint64 last = m_lastForgotten.loadRelaxed();
    if (now - last < kForgetEveryMs || !m_lastForgotten.testAndSetRelaxed(last, now)) {
        return;
    }
    const qint64 quiet = qint64{1000} * std::max<qint64>(kQuietSeconds, kMaxLockSeconds);
    // A sign-up record whose bucket has refilled says no more than no record.
    const qint64 refilled = qint64{1000} * m_policy.signUpIntervalSeconds * kSignUpBurst;
    m_store.forgetQuiet(now, now - quiet, now - std::max(quiet, refilled));
}
