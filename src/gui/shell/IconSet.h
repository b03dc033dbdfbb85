#pragma once

#include <QIcon>
#include <QString>

// The application's images, drawn for it as SVG and compiled in as resources, so that they stay
// sharp at any size: the closed padlock of an encryption, the open one of a decryption (each with
// a grey look for a filter that is off), the application's icon and the toolbar images.
class IconSet {
public:
    IconSet() = delete;

    static const QString kEncrypt;        // "encrypt"
    static const QString kEncryptGrey;    // "encrypt_grey"
    static const QString kDecrypt;        // "decrypt"
    static const QString kDecryptGrey;    // "decrypt_grey"
    static const QString kApplication;    // "nivogx"
    static const QString kAddFiles;       // "add_files"
    static const QString kExportProfile;  // "export_profile"
    static const QString kSignOut;        // "sign_out"
    static const QString kSearch;         // "search"
    static const QString kAddRecipient;   // "add_recipient"

    // The image of one of the names above; a null icon for any other name.
    [[nodiscard]] static QIcon named(const QString& name);
    // Where the image of `name` is kept among the resources.
    [[nodiscard]] static QString resourcePath(const QString& name);
};
