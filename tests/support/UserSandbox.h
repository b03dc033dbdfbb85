#pragma once

#include <QString>
#include <QTemporaryDir>
#include <optional>

class MemorySecretStore;

// Gives one test a private user: fresh data and config folders (XDG_DATA_HOME,
// XDG_CONFIG_HOME and the preferences path), forgotten process-wide state, and an in-memory
// credential store as the default keychain. Everything is restored on destruction.
class UserSandbox {
public:
    UserSandbox();
    ~UserSandbox();
    UserSandbox(const UserSandbox&) = delete;
    UserSandbox& operator=(const UserSandbox&) = delete;

    [[nodiscard]] QString root() const { return m_dir.path(); }
    [[nodiscard]] QString dataHome() const;
    [[nodiscard]] QString configHome() const;
    // What the launch and a sign-in leave for `name`: the folders, stored credentials (password
    // "pw") and the user's contact database.
    void setUpUser(const QString& name) const;
    // The in-memory store installed as the default keychain.
    [[nodiscard]] MemorySecretStore& keychain() { return *m_keychain; }

private:
    QTemporaryDir m_dir;
    MemorySecretStore* m_keychain = nullptr;  // owned by the keychain slot
    std::optional<QByteArray> m_savedDataHome;
    std::optional<QByteArray> m_savedConfigHome;
};
