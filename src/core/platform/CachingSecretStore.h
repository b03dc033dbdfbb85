#pragma once

#include <QHash>
#include <memory>

#include "platform/SecretStore.h"

// Remembers what another store answered, for a process that runs one short task: every question
// to the desktop's store is a round trip to another process, and a command asks for the same
// record many times. What this process writes or removes goes through and is remembered as
// such; failures are never remembered. A long-running program must not use it: it would not see
// another program's changes.
class CachingSecretStore final : public SecretStore {
public:
    explicit CachingSecretStore(std::unique_ptr<SecretStore> store) : m_store(std::move(store)) {}

    Reply read(const QString& service) override;
    Reply write(const QString& service, const QByteArray& record) override;
    Reply remove(const QString& service) override;

private:
    std::unique_ptr<SecretStore> m_store;
    QHash<QString, Reply> m_known;  // Ok or NotFound answers, by service
};
