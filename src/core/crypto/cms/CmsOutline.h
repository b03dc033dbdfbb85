#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

class QIODevice;

// What the outside of a protected file tells without any key: the enveloping layer, its content
// encryption, and who it is addressed to. The signed layer and the sender stay hidden inside.
struct CmsOutline {
    struct Recipient {
        QString kind;           // "key transport", "key agreement" or another recipient type
        QString keyAlgorithm;   // how the content key is passed on, e.g. "rsaesOaep"
        QString issuer;         // issuer and serial number of the recipient's certificate, when
        QString serialNumber;   // the file names it so (hex)
        QString keyIdentifier;  // subject key identifier (hex), when the file names it so
        // Index into the certificates given to inspect() of the first one this recipient names;
        // -1 when none does.
        qsizetype certificateIndex = -1;
    };

    QString failure;              // "" when the file could be read as a protected file
    QString layer;                // "EnvelopedData" or "AuthEnvelopedData"
    QString contentEncryption;    // e.g. "aes-256-cbc"
    QString innerContentType;     // the label of the hidden content, e.g. "pkcs7-data"
    QList<Recipient> recipients;  // one per entry, duplicates included, in file order

    // Reads the outer layer of the protected file at the device's position: only its head, up to
    // the encrypted content, so memory stays small whatever the file's size. The content is
    // never read: a file damaged or cut off inside it still shows its outline, and is refused
    // only by decryption. `knownCertificates` (DER) are matched against the recipients;
    // certificates that do not parse match nothing.
    [[nodiscard]] static CmsOutline inspect(QIODevice& device,
                                            const QList<QByteArray>& knownCertificates);
    // The same for a file already in memory.
    [[nodiscard]] static CmsOutline inspect(const QByteArray& der,
                                            const QList<QByteArray>& knownCertificates);
};
