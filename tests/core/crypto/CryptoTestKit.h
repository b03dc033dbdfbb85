#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include "TestPki.h"

// Helpers shared by the crypto tests: file access, DER building, outcomes of decryption, and
// messages built directly with OpenSSL for shapes the openssl command cannot produce.
namespace CryptoTestKit {

[[nodiscard]] QByteArray readFile(const QString& path);
void writeFile(const QString& path, const QByteArray& bytes);

// One DER TLV with a single-byte tag.
[[nodiscard]] QByteArray tlv(quint8 tag, const QByteArray& content);

struct Decrypted {
    QString outcome;
    QString sender;
    bool outputWritten = false;
    QByteArray output;
};
inline const QString kSenderUntouched = QStringLiteral("(sender untouched)");

// decryptData as `identity` (logged in as `loginName`) into `outputPath`, which must not exist.
[[nodiscard]] Decrypted decryptAs(const TestPki::Identity& identity, const QString& loginName,
                                  const QByteArray& message, const QString& outputPath);
// The same through decryptFile.
[[nodiscard]] Decrypted decryptFileAs(const TestPki::Identity& identity,
                                      const QString& loginName, const QString& inputPath,
                                      const QString& outputPath);

// `openssl cms -sign -nodetach` of `content` by the signers, in the order given, as DER.
[[nodiscard]] QByteArray opensslSign(const TestPki& pki, const QByteArray& content,
                                     const QList<const TestPki::Identity*>& signers,
                                     const QStringList& extraArguments = {});
// `openssl cms -encrypt` of `content` for the recipients, as DER.
[[nodiscard]] QByteArray opensslEncrypt(const TestPki& pki, const QByteArray& content,
                                        const QList<const TestPki::Identity*>& recipients,
                                        const QStringList& extraArguments = {});

// EnvelopedData (AES-256-CBC) for `recipient` around `content`, labelled with the content type
// `contentTypeNid`.
[[nodiscard]] QByteArray envelopeLabelled(const TestPki::Identity& recipient,
                                          const QByteArray& content, int contentTypeNid);
// EnvelopedData for `recipient` whose encrypted content is left out (detached ciphertext).
[[nodiscard]] QByteArray envelopeDetached(const TestPki::Identity& recipient,
                                          const QByteArray& content);
// A ContentInfo(CompressedData) around `content`, as DER; no compression library needed.
[[nodiscard]] QByteArray compressedMessage(const QByteArray& content);
// The SignedData inside a ContentInfo(SignedData), without the ContentInfo around it.
[[nodiscard]] QByteArray bareSignedData(const QByteArray& contentInfo);

}  // namespace CryptoTestKit
