#include <gtest/gtest.h>
#include <openssl/obj_mac.h>

#include <QDir>

#include "CryptoTestKit.h"
#include "TestPki.h"
#include "crypto/NivoCryptoOperation.h"
#include "crypto/toolkit/TVXRandom.h"

using namespace Qt::Literals::StringLiterals;
using namespace CryptoTestKit;

namespace {

// The real openssl command is the peer on the other side: it must open our files, and we must
// open its files, and bad files must fail with the right text and write nothing.
class OpensslInteropTest : public PeopleTest {
protected:
    // Made after the others, so that the serial numbers ascend: alice < bob < carol < erin.
    static void SetUpTestSuite() {
        PeopleTest::SetUpTestSuite();
        s_erin = new TestPki::Identity(s_people->pki.createUser(u"Erin Second Signer"_s));
    }
    static void TearDownTestSuite() {
        delete s_erin;
        s_erin = nullptr;
        PeopleTest::TearDownTestSuite();
    }

    const TestPki::Identity& erin() { return *s_erin; }

    QByteArray opensslDecrypt(const TestPki::Identity& recipient, const QByteArray& message) {
        return pki().openssl({u"cms"_s, u"-decrypt"_s, u"-binary"_s, u"-inform"_s, u"DER"_s,
                              u"-recip"_s, recipient.certPath, u"-inkey"_s, recipient.keyPath},
                             message);
    }

    static inline TestPki::Identity* s_erin = nullptr;
    const QByteArray m_content = "Minutes of the board meeting\n\x01\x02\x00\xff"_ba;
};

TEST_F(OpensslInteropTest, OurFilesDecryptAndVerifyWithOpenssl) {
    const TestPki::Identity dave = pki().createUser(u"Dave Curve"_s, TestPki::KeyType::Ec);
    // Larger than every buffer: the file variant writes open lengths and the content in pieces.
    const QByteArray content = TVXRandom::randomDataWithLength(1024 * 1024 + 3);
    const NivoProfile aliceProfile = TestPki::profileFor(alice(), u"alice"_s);
    const QList<QByteArray> recipients{bob().certDer, dave.certDer};
    ASSERT_TRUE(putFile(out(u"plain"_s), content));
    ASSERT_EQ(NivoCryptoOperation::encryptData(content, aliceProfile, TestPki::kPassword,
                                               recipients, out(u"memory.tvf"_s)),
              u""_s);
    ASSERT_EQ(NivoCryptoOperation::encryptFile(out(u"plain"_s), aliceProfile, TestPki::kPassword,
                                               recipients, out(u"streamed.tvf"_s)),
              u""_s);

    const QString caFile = pki().ca().certPath;
    for (const QString& name : {u"memory.tvf"_s, u"streamed.tvf"_s}) {
        const QByteArray message = fileBytes(out(name));
        for (const TestPki::Identity* recipient : {&bob(), &dave, &alice()}) {
            SCOPED_TRACE(name.toStdString() + " for " + recipient->commonName.toStdString());
            const QByteArray signedMessage = opensslDecrypt(*recipient, message);
            ASSERT_FALSE(signedMessage.isEmpty());
            EXPECT_EQ(pki().openssl({u"cms"_s, u"-verify"_s, u"-binary"_s, u"-inform"_s, u"DER"_s,
                                     u"-CAfile"_s, caFile},
                                    signedMessage),
                      content);
        }
    }
}

TEST_F(OpensslInteropTest, OpensslFilesOpenAndNameTheSender) {
    const QByteArray signedByCarol = pki().sign(m_content, {&carol()});
    const QStringList oaep{u"-keyopt"_s, u"rsa_padding_mode:oaep"_s, u"-keyopt"_s,
                           u"rsa_oaep_md:sha256"_s, u"-keyopt"_s, u"rsa_mgf1_md:sha256"_s};
    struct Variant {
        const char* name;
        QByteArray message;
    };
    const QList<Variant> variants{
        {"PKCS#1 v1.5, AES-256-CBC", pki().encrypt(signedByCarol, {&bob()}, {u"-aes-256-cbc"_s})},
        {"OAEP, AES-256-CBC",
         pki().encrypt(signedByCarol, {},
                       QStringList{u"-aes-256-cbc"_s, u"-recip"_s, bob().certPath} + oaep)},
        {"PKCS#1 v1.5, AES-128-CBC", pki().encrypt(signedByCarol, {&bob()}, {u"-aes-128-cbc"_s})},
        {"AES-256-GCM (AuthEnvelopedData)",
         pki().encrypt(signedByCarol, {&bob()}, {u"-aes-256-gcm"_s})},
        {"ContentInfo under id-signedData",
         envelopeLabelled(bob(), signedByCarol, NID_pkcs7_signed)},
        {"bare SignedData under id-signedData",
         envelopeLabelled(bob(), bareSignedData(signedByCarol), NID_pkcs7_signed)},
    };
    int n = 0;
    for (const Variant& variant : variants) {
        SCOPED_TRACE(variant.name);
        const Decrypted opened = decryptAs(bob(), u"bob"_s, variant.message,
                                           out(QString::number(++n)));
        EXPECT_EQ(opened.outcome, u""_s);
        EXPECT_EQ(opened.output, m_content);
        EXPECT_EQ(opened.sender, carol().commonName);
    }
}

TEST_F(OpensslInteropTest, SignerListDecidesTheSender) {
    // DER sorts the signer entries; with one CA and equal key sizes, the higher serial (Erin)
    // ends up last whatever the order on the command line.
    const QByteArray twoSigners =
        pki().encrypt(pki().sign(m_content, {&erin(), &carol()}), {&bob()});
    Decrypted opened = decryptAs(bob(), u"bob"_s, twoSigners, out(u"two"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, m_content);
    EXPECT_EQ(opened.sender, erin().commonName);

    // Signed by the user without the certificate in the message: the signature is checked with
    // the user's own certificate, and no certificate names a sender.
    const QByteArray withoutCertificate =
        pki().encrypt(pki().sign(m_content, {&bob()}, {u"-nocerts"_s}), {&bob()});
    opened = decryptAs(bob(), u"bob"_s, withoutCertificate, out(u"nocert"_s));
    EXPECT_EQ(opened.outcome, u""_s);
    EXPECT_EQ(opened.output, m_content);
    EXPECT_EQ(opened.sender, kSenderUntouched);

    // Somebody else's signature without certificate cannot be checked.
    const QByteArray unverifiable =
        pki().encrypt(pki().sign(m_content, {&carol()}, {u"-nocerts"_s}), {&bob()});
    opened = decryptAs(bob(), u"bob"_s, unverifiable, out(u"unverifiable"_s));
    EXPECT_EQ(opened.outcome, NivoCryptoOperation::kInvalidSignature);
    EXPECT_FALSE(opened.outputWritten);
}

TEST_F(OpensslInteropTest, BadFilesFailWithTheRightTextAndWriteNothing) {
    const QByteArray signedByCarol = pki().sign(m_content, {&carol()});
    const QByteArray good = pki().encrypt(signedByCarol, {&bob()});

    // A signature that does not match: the last byte of DER SignedData is in the signature.
    QByteArray badSignature = signedByCarol;
    badSignature[badSignature.size() - 1] = static_cast<char>(badSignature.back() ^ 0x01);
    // Content that does not match its digest.
    QByteArray badContent = signedByCarol;
    const qsizetype at = badContent.indexOf("board");
    ASSERT_GE(at, 0);
    badContent[at] = 'B';
    // Ours, larger than every buffer of the streaming variant. The signer entries come last in
    // the signed layer, so the last block of the ciphertext carries the signature.
    const QByteArray ours = aliceToBob(TVXRandom::randomDataWithLength(300 * 1024));
    const auto flipped = [](QByteArray message, qsizetype where, char bits) {
        message[where] = static_cast<char>(message[where] ^ bits);
        return message;
    };

    const QString notSupported = u"Not Supported Exception"_s;
    struct Case {
        const char* name;
        QByteArray message;
        QString expected;  // empty: any failure text
    };
    const QList<Case> cases{
        {"plain text file", "just some text, not protected\n"_ba,
         NivoCryptoOperation::kNotEncryptedOrNotSupported},
        {"signed only", signedByCarol, NivoCryptoOperation::kNotEncryptedOrNotSupported},
        {"for other recipients only", pki().encrypt(signedByCarol, {&alice(), &carol()}),
         NivoCryptoOperation::kNotRecipient},
        {"compressed", compressedMessage("hello"_ba), notSupported},
        {"compressed inside the envelope", pki().encrypt(compressedMessage("hello"_ba), {&bob()}),
         notSupported},
        {"detached ciphertext", envelopeDetached(bob(), signedByCarol), notSupported},
        {"signature does not match", pki().encrypt(badSignature, {&bob()}),
         NivoCryptoOperation::kInvalidSignature},
        {"content does not match", pki().encrypt(badContent, {&bob()}),
         NivoCryptoOperation::kInvalidSignature},
        {"encrypted but not signed", pki().encrypt(m_content, {&bob()}), {}},
        {"truncated", good.left(good.size() - 40), {}},
        {"ours, tampered ciphertext", flipped(ours, ours.size() / 2, 0x20), {}},
        {"ours, tampered near the end", flipped(ours, ours.size() - 40, 0x01), {}},
        {"ours, truncated in the content", ours.left(ours.size() / 3), {}},
        {"ours, truncated at the end", ours.left(ours.size() - 2), {}},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString outputPath = out(u"case%1"_s.arg(++n));
        const Decrypted opened = decryptAs(bob(), u"bob"_s, c.message, outputPath);
        if (c.expected.isEmpty()) {
            EXPECT_FALSE(opened.outcome.isEmpty());
            // A damaged protected file is not mistaken for one that never was one.
            EXPECT_NE(opened.outcome, NivoCryptoOperation::kNotEncryptedOrNotSupported);
        } else {
            EXPECT_EQ(opened.outcome, c.expected);
        }
        EXPECT_FALSE(opened.outputWritten);
        EXPECT_EQ(opened.sender, kSenderUntouched);

        // The streaming variant fails alike and keeps an earlier file at its output path.
        const QString input = out(u"in%1"_s.arg(n));
        ASSERT_TRUE(putFile(input, c.message));
        const QString earlier = out(u"earlier%1"_s.arg(n));
        ASSERT_TRUE(putFile(earlier, "an earlier file"_ba));
        QString sender = kSenderUntouched;
        EXPECT_EQ(NivoCryptoOperation::decryptFile(input, TestPki::profileFor(bob(), u"bob"_s),
                                                   TestPki::kPassword, earlier, sender),
                  opened.outcome);
        EXPECT_EQ(sender, kSenderUntouched);
        EXPECT_EQ(fileBytes(earlier), "an earlier file"_ba);
    }
    // No temporary file is left behind by any failure.
    for (const QString& name : QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden)) {
        EXPECT_TRUE(name.startsWith(u"in"_s) || name.startsWith(u"earlier"_s))
            << name.toStdString();
    }

    // The good file still opens, so the failures above are the files' fault.
    EXPECT_EQ(decryptAs(bob(), u"bob"_s, good, out(u"good"_s)).outcome, u""_s);
}

TEST_F(OpensslInteropTest, AFlippedByteAnywhereNeverYieldsOtherContent) {
    const QByteArray good = pki().encrypt(pki().sign(m_content, {&carol()}), {&bob()});
    // CBC has no integrity of its own: some flips (inside the certificate's own signature, say)
    // still open to the right content; any flip that touches what the signature covers must fail.
    int failures = 0;
    for (qsizetype at = 0; at < good.size(); at += 37) {
        SCOPED_TRACE(at);
        QByteArray flipped = good;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x04);
        const Decrypted opened = decryptAs(bob(), u"bob"_s, flipped, out(u"flip%1"_s.arg(at)));
        if (opened.outcome.isEmpty()) {
            EXPECT_EQ(opened.output, m_content);
            EXPECT_EQ(opened.sender, carol().commonName);
        } else {
            ++failures;
            EXPECT_FALSE(opened.outputWritten);
            EXPECT_EQ(opened.sender, kSenderUntouched);
        }
    }
    EXPECT_GT(failures, 0);
}

}  // namespace
