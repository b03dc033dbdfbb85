#pragma once

#include <QHash>

#include "platform/SecretStore.h"

// An in-memory secret store that can be told to fail, the way a locked or unreachable keychain
// does.
class MemorySecretStore final : public SecretStore {
public:
    Reply read(const QString& service) override;
    Reply write(const QString& service, const QByteArray& record) override;
    Reply remove(const QString& service) override;

    // Every call fails with this code and text until cleared with failWith(0, {}).
    void failWith(long code, const QString& message);
    // Only writes fail (reads still work), like a store that turned read-only.
    void failWritesWith(long code, const QString& message);

    [[nodiscard]] const QHash<QString, QByteArray>& records() const { return m_records; }

private:
    [[nodiscard]] Reply failure() const;

    QHash<QString, QByteArray> m_records;
    long m_failCode = 0;
    bool m_failReads = false;
    QString m_failMessage;
};
