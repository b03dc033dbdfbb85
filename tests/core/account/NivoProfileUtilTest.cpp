#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QSslCertificate>

#include "TestFiles.h"
#include "account/NivoProfileUtil.h"

namespace {

QJsonArray json(const char* text) {
    return QJsonDocument::fromJson(text).array();
}

TEST(NivoProfileUtilTest, FoundIgnoresCaseAndPosition) {
    EXPECT_TRUE(NivoProfileUtil::found(QStringLiteral("wrong password"),
                                       QStringLiteral("{\"profile\":WRONG PASSWORD for alice}")));
    EXPECT_TRUE(NivoProfileUtil::found(QStringLiteral("is not"), QStringLiteral("is not here")));
    EXPECT_FALSE(NivoProfileUtil::found(QStringLiteral("wrong password"),
                                        QStringLiteral("wrong  password")));
    EXPECT_FALSE(NivoProfileUtil::found(QString(), QStringLiteral("anything")));
}

TEST(NivoProfileUtilTest, NumbersBecomeTheirLowBytes) {
    EXPECT_EQ(NivoProfileUtil::NSArrayToNSData(json("[48, 130, 256, -1, 511, 7.9]")),
              QByteArray::fromHex("308200ffff07"));
    EXPECT_TRUE(NivoProfileUtil::NSArrayToNSData(json("[]")).isEmpty());
    // Numbers beyond 64 bits, as a damaged answer holds them, still give their low byte.
    EXPECT_EQ(NivoProfileUtil::NSArrayToNSData(
                  json("[33333333333333333333337, -1e300, 4294967551, -257, -7.9]")),
              QByteArray::fromHex("0000fffff9"));
    EXPECT_THROW((void)NivoProfileUtil::NSArrayToNSData(json("[1, \"2\"]")), std::invalid_argument);
    EXPECT_THROW((void)NivoProfileUtil::NSArrayToNSData(json("[1, null]")), std::invalid_argument);
}

TEST(NivoProfileUtilTest, BytesBecomeUnsignedNumbersAndEmptyIsAbsent) {
    EXPECT_FALSE(NivoProfileUtil::NSDataToNSArray({}).has_value());
    EXPECT_EQ(NivoProfileUtil::NSDataToNSArray(QByteArray::fromHex("ff0080")), json("[255,0,128]"));
    const QByteArray all = [] {
        QByteArray b;
        for (int i = 0; i < 256; ++i) {
            b.append(static_cast<char>(i));
        }
        return b;
    }();
    EXPECT_EQ(NivoProfileUtil::NSArrayToNSData(*NivoProfileUtil::NSDataToNSArray(all)), all);
}

TEST(NivoProfileUtilTest, HexConversions) {
    EXPECT_EQ(NivoProfileUtil::hexStringToByteArray(QStringLiteral("A1b")), QByteArray("\xa1"));
    EXPECT_TRUE(NivoProfileUtil::hexStringToByteArray(QStringLiteral("f")).isEmpty());
    EXPECT_TRUE(NivoProfileUtil::hexStringToByteArray(QString()).isEmpty());
    EXPECT_EQ(NivoProfileUtil::hexStringToByteArray(QStringLiteral("00FFzz1z")),
              QByteArray::fromHex("00ff0001"));
    EXPECT_EQ(NivoProfileUtil::byteArrayToHexString(QByteArray::fromHex("0aff")),
              QStringLiteral("0aff"));
    EXPECT_EQ(NivoProfileUtil::byteArrayToHexString({}), QString());
}

}  // namespace

namespace {

QByteArray devFile(const char* name) {
    return fileBytes(QStringLiteral(NIVOGX_SOURCE_DIR "/certs/dev/") + QString::fromLatin1(name));
}

TEST(NivoProfileUtilTest, CertificateChecksFollowTheChainAndRejectDamage) {
    // The development server certificate: comm root -> comm intermediate -> leaf.
    const QByteArray leaf = QSslCertificate::fromData(devFile("server-tls-chain.pem")).value(0).toDer();
    const QByteArray commRoot = devFile("comm-root.cer");
    const QByteArray commIntermediate = devFile("comm-intermediate.cer");
    const QByteArray serviceRoot = devFile("service-root.cer");
    ASSERT_FALSE(leaf.isEmpty());

    EXPECT_TRUE(NivoProfileUtil::verifyX509Cert(leaf, commRoot, commIntermediate));
    EXPECT_TRUE(NivoProfileUtil::verifyCer(leaf, commRoot, commIntermediate));
    EXPECT_FALSE(NivoProfileUtil::verifyX509Cert(leaf, serviceRoot, commIntermediate))
        << "not issued under that root";
    EXPECT_FALSE(NivoProfileUtil::verifyX509Cert(leaf, commRoot, serviceRoot))
        << "the real intermediate is missing";

    QByteArray damaged = leaf;
    damaged[damaged.size() / 2] = static_cast<char>(damaged[damaged.size() / 2] ^ 0x01);
    EXPECT_FALSE(NivoProfileUtil::verifyX509Cert(damaged, commRoot, commIntermediate));
    EXPECT_FALSE(NivoProfileUtil::verifyX509Cert(leaf, commRoot.left(20), commIntermediate));
    EXPECT_FALSE(NivoProfileUtil::verifyX509Cert(leaf, commRoot, QByteArray()));
}

TEST(NivoProfileUtilTest, KeyFileThatCannotBeOpenedGivesNoCertificate) {
    EXPECT_FALSE(NivoProfileUtil::extractCerFromPfx(QByteArray(), QStringLiteral("pw")));
    EXPECT_FALSE(NivoProfileUtil::extractCerFromPfx(devFile("comm-root.cer"), QStringLiteral("pw")));
}

}  // namespace
