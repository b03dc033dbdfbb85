#include "server/ClientThrottle.h"

#include <QMutexLocker>
#include <algorithm>

namespace {

// Records past this many are pruned of the ones that no longer hold anyone back.
constexpr qsizetype kPruneAbove = 100'000;

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

ClientThrottle::ClientThrottle() : ClientThrottle(Policy{}) {}

ClientThrottle::ClientThrottle(Policy policy) : m_policy(policy) {}

QString ClientThrottle::pairKey(const QString& account, const QHostAddress& client) {
    return account + QLatin1Char(' ') + clientKey(client);
}

qint64 ClientThrottle::lockedSeconds(const QString& account, const QHostAddress& client,
                                     const QDateTime& now) const {
    const QMutexLocker lock(&m_mutex);
    const auto it = m_pairs.constFind(pairKey(account, client));
    if (it == m_pairs.cend() || !it->lockedUntil.isValid() || it->lockedUntil <= now) {
        return 0;
    }
    return std::max<qint64>(1, (now.msecsTo(it->lockedUntil) + 999) / 1000);
}

std::optional<qint64> ClientThrottle::reserveCheck(const QString& account,
                                                  const QHostAddress& client,
                                                  const QDateTime& now) {
    if (lockedSeconds(account, client, now) > 0) {
        return 0;
    }
    const QMutexLocker lock(&m_mutex);
    const auto it = m_accounts.find(account);
    if (it == m_accounts.end() || it->failures < kAccountFreeFailures) {
        return 0;
    }
    const QDateTime turn = it->nextCheck.isValid() && it->nextCheck > now ? it->nextCheck : now;
    if (now.msecsTo(turn) > kMaxWaitMs) {
        return std::nullopt;
    }
    it->nextCheck = turn.addMSecs(kAccountSpacingMs);
    return now.msecsTo(turn);
}

void ClientThrottle::recordFailure(const QString& account, const QHostAddress& client,
                                   const QDateTime& now) {
    const QMutexLocker lock(&m_mutex);
    if (m_pairs.size() > kPruneAbove) {
        // Forgotten after a quiet while as long as the longest wait: a returning guesser starts
        // over, but only after that long.
        m_pairs.removeIf([&](const auto& entry) {
            const PairRecord& pair = entry.value();
            return pair.lastFailure.addSecs(kMaxLockSeconds) < now &&
                   (!pair.lockedUntil.isValid() || pair.lockedUntil < now);
        });
    }
    PairRecord& pair = m_pairs[pairKey(account, client)];
    ++pair.failures;
    pair.lastFailure = now;
    if (pair.failures >= kFreeAttempts) {
        // 1, 2, 4, ... seconds, up to the cap: slow for a guesser, short for a typo.
        const int exponent = std::min(pair.failures - kFreeAttempts, 20);
        pair.lockedUntil = now.addSecs(std::min<qint64>(qint64{1} << exponent, kMaxLockSeconds));
    }
    ++m_accounts[account].failures;
}

void ClientThrottle::recordSuccess(const QString& account, const QHostAddress& client) {
    const QMutexLocker lock(&m_mutex);
    m_pairs.remove(pairKey(account, client));
    m_accounts.remove(account);
}

bool ClientThrottle::takeSignUp(const QHostAddress& client, const QDateTime& now) {
    if (m_policy.signUpIntervalSeconds <= 0) {
        return true;
    }
    const QMutexLocker lock(&m_mutex);
    const double interval = m_policy.signUpIntervalSeconds;
    if (m_signUps.size() > kPruneAbove) {
        m_signUps.removeIf([&](const auto& entry) {
            return entry.value().updated.secsTo(now) > interval * kSignUpBurst;
        });
    }
    SignUpRecord& record = m_signUps[clientKey(client)];
    if (record.updated.isValid()) {
        const double refill = static_cast<double>(record.updated.msecsTo(now)) / 1000.0 / interval;
        record.tokens = std::min<double>(kSignUpBurst, record.tokens + std::max(0.0, refill));
    }
    record.updated = now;
    if (record.tokens < 1.0) {
        return false;
    }
    record.tokens -= 1.0;
    return true;
}
