#include "platform/CachingSecretStore.h"

SecretStore::Reply CachingSecretStore::read(const QString& service) {
    if (const auto known = m_known.constFind(service); known != m_known.cend()) {
        return *known;
    }
    Reply reply = m_store->read(service);
    if (reply.status != Status::Failed) {
        m_known.insert(service, reply);
    }
    return reply;
}

SecretStore::Reply CachingSecretStore::write(const QString& service, const QByteArray& record) {
    Reply reply = m_store->write(service, record);
    if (reply.status == Status::Ok) {
        Reply stored;
        stored.status = Status::Ok;
        stored.data = record;
        m_known.insert(service, stored);
    } else {
        m_known.remove(service);  // the record may or may not have changed
    }
    return reply;
}

SecretStore::Reply CachingSecretStore::remove(const QString& service) {
    Reply reply = m_store->remove(service);
    if (reply.status == Status::Failed) {
        m_known.remove(service);
    } else {
        Reply gone;
        gone.status = Status::NotFound;
        m_known.insert(service, gone);
    }
    return reply;
}
