#pragma once

#include <QByteArray>
#include <QString>

// A per-user secret store holding one opaque record per service name. The production store is
// the desktop's Secret Service (QtKeychainStore); tests plug in an in-memory one.
class SecretStore {
public:
    enum class Status { Ok, NotFound, Failed };

    struct Reply {
        Status status = Status::Failed;
        QByteArray data;  // the record, after a successful read
        long code = 0;    // the backend's error code, for diagnosis
        QString message;  // the backend's error text, for diagnosis
    };

    SecretStore() = default;
    SecretStore(const SecretStore&) = delete;
    SecretStore& operator=(const SecretStore&) = delete;
    virtual ~SecretStore() = default;

    virtual Reply read(const QString& service) = 0;
    virtual Reply write(const QString& service, const QByteArray& record) = 0;
    // Reports NotFound when there was nothing to remove.
    virtual Reply remove(const QString& service) = 0;
};
