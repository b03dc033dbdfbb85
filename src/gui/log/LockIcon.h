#pragma once

#include <QIcon>
#include <QString>

// The padlock images of the log viewer, drawn rather than shipped so that the static library
// needs no resources: closed for an encryption, open for a decryption, grey while a filter is off.
class LockIcon {
public:
    LockIcon() = delete;

    static const QString kEncrypt;      // "encrypt"
    static const QString kEncryptGrey;  // "encrypt_grey"
    static const QString kDecrypt;      // "decrypt"
    static const QString kDecryptGrey;  // "decrypt_grey"

    // The image of one of the names above; a null icon for any other name.
    [[nodiscard]] static QIcon named(const QString& name);
};
