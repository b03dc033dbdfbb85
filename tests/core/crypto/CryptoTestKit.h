#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTemporaryDir>

#include "TestFiles.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"

// Helpers shared by the crypto tests: DER building, outcomes of decryption, and
// messages built directly with OpenSSL for shapes the openssl command cannot produce.
namespace CryptoTestKit {

// One DER TLV with a single-byte tag.
[[nodiscard]] QByteArray tlv(quint8 tag, const QByteArray& content);

struct Decrypted {
    QString outcome;
    QString sender;
    bool outputWritten = false;
    QByteArray output;
    SenderVerdict verdict;  // only from decryptJudged
};
inline const QString kSenderUntouched = QStringLiteral("(sender untouched)");

// decryptData as `identity` (logged in as `loginName`) into `outputPath`, which must not exist.
[[nodiscard]] Decrypted decryptAs(const TestPki::Identity& identity, const QString& loginName,
                                  const QByteArray& message, const QString& outputPath);
// decryptData with `context`, keeping the verdict on the sender.
[[nodiscard]] Decrypted decryptJudged(const TestPki::Identity& identity, const QString& loginName,
                                      const QByteArray& message, const QString& outputPath,
                                      const NivoCryptoOperation::SenderContext& context);
// The same through decryptFile.
[[nodiscard]] Decrypted decryptFileAs(const TestPki::Identity& identity,
                                      const QString& loginName, const QString& inputPath,
                                      const QString& outputPath);

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

// Tests with Alice, Bob and Carol of one throw-away PKI, made once per suite, and a fresh
// folder per test.
class PeopleTest : public ::testing::Test {
protected:
    struct People {
        TestPki pki;
        TestPki::Identity alice = pki.createUser(QStringLiteral("Alice Sender"));
        TestPki::Identity bob = pki.createUser(QStringLiteral("Bob Recipient"));
        TestPki::Identity carol = pki.createUser(QStringLiteral("Carol Other"));
    };

    static void SetUpTestSuite() { s_people = new People; }
    static void TearDownTestSuite() {
        delete s_people;
        s_people = nullptr;
    }

    TestPki& pki() { return s_people->pki; }
    const TestPki::Identity& alice() { return s_people->alice; }
    const TestPki::Identity& bob() { return s_people->bob; }
    const TestPki::Identity& carol() { return s_people->carol; }
    QString out(const QString& name) const { return m_dir.filePath(name); }
    // A protected file from Alice to Bob around `content`, as the program writes it.
    QByteArray aliceToBob(const QByteArray& content);

    static inline People* s_people = nullptr;
    QTemporaryDir m_dir;
};

