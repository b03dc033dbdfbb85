#include "MemorySecretStore.h"

SecretStore::Reply MemorySecretStore::failure() const {
    return Reply{Status::Failed, {}, m_failCode, m_failMessage};
}

SecretStore::Reply MemorySecretStore::read(const QString& service) {
    if (m_failCode != 0 && m_failReads) {
        return failure();
    }
    const auto it = m_records.constFind(service);
    if (it == m_records.cend()) {
        return Reply{Status::NotFound, {}, 1, QStringLiteral("Entry not found")};
    }
    return Reply{Status::Ok, *it, 0, {}};
}

SecretStore::Reply MemorySecretStore::write(const QString& service, const QByteArray& record) {
    if (m_failCode != 0) {
        return failure();
    }
    m_records.insert(service, record);
    return Reply{Status::Ok, {}, 0, {}};
}

SecretStore::Reply MemorySecretStore::remove(const QString& service) {
    if (m_failCode != 0) {
        return failure();
    }
    if (m_records.remove(service) == 0) {
        return Reply{Status::NotFound, {}, 1, QStringLiteral("Entry not found")};
    }
    return Reply{Status::Ok, {}, 0, {}};
}

void MemorySecretStore::failWith(long code, const QString& message) {
    m_failCode = code;
    m_failMessage = message;
    m_failReads = true;
}

void MemorySecretStore::failWritesWith(long code, const QString& message) {
    m_failCode = code;
    m_failMessage = message;
    m_failReads = false;
}
