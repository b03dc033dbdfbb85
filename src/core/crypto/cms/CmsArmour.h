#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QString>

// The text forms of a CMS message, for mail and chat: PEM ("-----BEGIN CMS-----", base64 in
// lines of 64) and S/MIME (an application/pkcs7-mime MIME entity). Both directions stream in
// blocks, in constant memory whatever the message's size.
class CmsArmour {
public:
    CmsArmour() = delete;

    enum class Form { Binary, Pem, Smime };

    // The label written, and the labels read, of PEM messages.
    static const QByteArray kPemLabel;
    static const QByteArray kPkcs7PemLabel;
    // Failure texts of unwrap(), for armour that does not hold a message.
    static const QString kBadArmour;
    // PEM whose END line names another label than its BEGIN line ("%1" is the END line), or
    // that has none: text cut short or pasted together, which is not opened as if whole.
    static const QString kEndMismatch;
    static const QString kNoEnd;

    // The form of a message from its first bytes (a few hundred suffice); Binary for anything
    // that is not text armour.
    [[nodiscard]] static Form formOf(const QByteArray& head);
    // Whether the file at `path` starts like text armour.
    [[nodiscard]] static bool isArmoured(const QString& path);

    // Writes the DER message read from `in` to `out` as PEM; "" on success, else the failure.
    [[nodiscard]] static QString wrap(QIODevice& in, QIODevice& out);
    // Writes the DER message that the PEM or S/MIME text read from `in` carries to `out`; "" on
    // success, else the failure (kBadArmour when the text holds no message, kEndMismatch or kNoEnd
    // for PEM that does not end as it began).
    [[nodiscard]] static QString unwrap(QIODevice& in, QIODevice& out);
};
