#pragma once

#include "platform/SecretStore.h"

// SecretStore over QtKeychain (the Secret Service on Linux, the login keychain on macOS, the
// credential manager on Windows). Calls are synchronous: each runs its job in a short local
// event loop that ignores user input. Needs a QCoreApplication.
class QtKeychainStore final : public SecretStore {
public:
    Reply read(const QString& service) override;
    Reply write(const QString& service, const QByteArray& record) override;
    Reply remove(const QString& service) override;
};
