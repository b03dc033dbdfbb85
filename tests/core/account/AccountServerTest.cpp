#include <gtest/gtest.h>

#include <QSslCertificate>

#include "account/AccountServer.h"
#include "account/NivoProfileCommon.h"

namespace {

class AccountServerTest : public ::testing::Test {
protected:
    void SetUp() override { qunsetenv("NIVOGX_SERVER"); }
    void TearDown() override {
        AccountServer::setBaseUrl(QString());
        qunsetenv("NIVOGX_SERVER");
    }
};

TEST_F(AccountServerTest, AddressComesFromOverrideThenEnvironmentThenBuild) {
    const QUrl builtIn = AccountServer::baseUrl();
    EXPECT_EQ(builtIn.scheme(), QStringLiteral("https"));

    qputenv("NIVOGX_SERVER", "https://accounts.example.org");
    EXPECT_EQ(AccountServer::endpoint(QStringLiteral("/nivo/GetId.aspx")).toString(),
              QStringLiteral("https://accounts.example.org:443/nivo/GetId.aspx"));

    AccountServer::setBaseUrl(QStringLiteral(" https://127.0.0.1:8443/base/ "));
    EXPECT_EQ(AccountServer::endpoint(QStringLiteral("/nivo/GetProfile.aspx")).toString(),
              QStringLiteral("https://127.0.0.1:8443/base/nivo/GetProfile.aspx"));

    AccountServer::setBaseUrl(QString());
    EXPECT_EQ(AccountServer::baseUrl().host(), QStringLiteral("accounts.example.org"));
}

TEST_F(AccountServerTest, CompiledInCertificatesAreCasThatChainTogether) {
    const QSslCertificate serviceRoot(NivoProfileCommon::getNivoRootCer(), QSsl::Der);
    const QSslCertificate commRoot(NivoProfileCommon::getNivoCommRootCer(), QSsl::Der);
    const QSslCertificate commIntermediate(NivoProfileCommon::getNivoCommIntermediateCer(),
                                           QSsl::Der);
    for (const auto* cert : {&serviceRoot, &commRoot, &commIntermediate}) {
        ASSERT_FALSE(cert->isNull());
    }
    EXPECT_TRUE(serviceRoot.isSelfSigned());
    EXPECT_TRUE(commRoot.isSelfSigned());
    EXPECT_EQ(commIntermediate.issuerDisplayName(), commRoot.subjectDisplayName());
    EXPECT_EQ(AccountServer::requestOptions().extraCaCertificates,
              (QList<QSslCertificate>{commRoot, commIntermediate}));
}

}  // namespace
