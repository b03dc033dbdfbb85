#pragma once

#include <QString>

// The server's secrets on disk (the account database, the CA's private key) are for its own user
// only. These checks refuse to go on when others could read them, and say how to fix it.
class PrivateFiles {
public:
    enum class Others {
        NoAccess,         // owner only: 0700 folders, 0600 files
        NoWorldAccess,    // the group may read (a TLS key shared through a group such as ssl-cert)
    };

    // Creates the folder owner-only when absent. Empty when fine, else what is wrong and the fix.
    [[nodiscard]] static QString makePrivateFolder(const QString& path);
    // Empty when the file is absent or readable by no more than `others` allows; else the problem
    // and the fix.
    [[nodiscard]] static QString checkPrivate(const QString& path, Others others = Others::NoAccess);
};
