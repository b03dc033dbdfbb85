// The account service's answers, straight from the service object (no HTTP): what it stores,
// what it issues, and how it refuses.
#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "account/NivoProfileCommon.h"
#include "account/NivoProfileUtil.h"
#include "server/AccountService.h"

namespace {

QString dev(const char* name) {
    return QStringLiteral(NIVOGX_DEV_CERTS_DIR "/") + QString::fromLatin1(name);
}

class AccountServiceTest : public ::testing::Test {
protected:
    AccountServiceTest()
        : store(QDir(dir.path()).filePath(QStringLiteral("accounts.db"))),
          authority(dev("service-root.cer"), dev("service-root.key")),
          service(store, authority, [this] { return now; }) {}

    void SetUp() override {
        ASSERT_TRUE(store.open());
        ASSERT_TRUE(authority.isValid());
    }

    QString create(const QString& name, const QString& password) {
        return QString::fromUtf8(service
                                     .createProfile({{QStringLiteral("logInName"), name},
                                                     {QStringLiteral("logInPassword"), password},
                                                     {QStringLiteral("firstName"), QStringLiteral("Al")},
                                                     {QStringLiteral("lastName"), QStringLiteral("Ice")},
                                                     {QStringLiteral("email"), QStringLiteral("a@b.co")}})
                                     .body);
    }

    QString getProfile(const QString& name, const QString& password) {
        return QString::fromUtf8(service
                                     .getProfile({{QStringLiteral("logInName"), name},
                                                  {QStringLiteral("logInPassword"), password}})
                                     .body);
    }

    QTemporaryDir dir;
    AccountStore store;
    AccountAuthority authority;
    QDateTime now = QDateTime(QDate(2026, 11, 22), QTime(9, 0), Qt::UTC);
    AccountService service;
};

TEST_F(AccountServiceTest, SignUpIssuesAKeyFileThatOpensWithThePasswordOnly) {
    EXPECT_EQ(create(QStringLiteral("Alice"), QStringLiteral("pä55")),
              QStringLiteral("Profile created for alice."));
    const auto account = store.find(QStringLiteral("ALICE"));
    ASSERT_TRUE(account.has_value());
    EXPECT_EQ(account->loginName, QStringLiteral("alice"));
    EXPECT_NE(account->password.hash, QStringLiteral("pä55").toUtf8()) << "never stored in clear";

    const auto cert = NivoProfileUtil::extractCerFromPfx(account->pfx, QStringLiteral("pä55"));
    ASSERT_TRUE(cert.has_value());
    EXPECT_EQ(*cert, account->certificate);
    EXPECT_FALSE(NivoProfileUtil::extractCerFromPfx(account->pfx, QStringLiteral("pa55")));
    // Issued under the service root, which the app has compiled in.
    EXPECT_TRUE(NivoProfileUtil::verifyX509Cert(*cert, NivoProfileCommon::getNivoRootCer(),
                                                NivoProfileCommon::getNivoCommIntermediateCer()));
}

TEST_F(AccountServiceTest, SignUpRefusesTakenAndMalformedNames) {
    ASSERT_EQ(create(QStringLiteral("bob"), QStringLiteral("pw")),
              QStringLiteral("Profile created for bob."));
    EXPECT_TRUE(create(QStringLiteral("BOB"), QStringLiteral("x")).contains(QStringLiteral("is not available")));
    EXPECT_TRUE(create(QStringLiteral("bo b"), QStringLiteral("x")).contains(QStringLiteral("Invalid Account Entry")));
    EXPECT_TRUE(create(QStringLiteral("carol"), QString()).contains(QStringLiteral("Invalid Account Entry")));
}

TEST_F(AccountServiceTest, ProfileAndIdAnswers) {
    ASSERT_EQ(create(QStringLiteral("dave"), QStringLiteral("pw")), QStringLiteral("Profile created for dave."));
    const QString profile = getProfile(QStringLiteral("dave"), QStringLiteral("pw"));
    EXPECT_TRUE(profile.startsWith(QStringLiteral("{\"LogInInfo\":\"dave||Al||Ice||a@b.co\",\"Pfx\":[")))
        << profile.left(80).toStdString();

    const auto id = service.getId({{QStringLiteral("logInNameToRetrieve"), QStringLiteral("Dave")}});
    EXPECT_EQ(id.contentType, "application/json; charset=utf-8");
    EXPECT_TRUE(id.body.startsWith("{\"Pfx\":[48,130,"));
}

TEST_F(AccountServiceTest, RepeatedWrongPasswordsLockTheNameForGrowingPeriods) {
    ASSERT_EQ(create(QStringLiteral("frank"), QStringLiteral("right")), QStringLiteral("Profile created for frank."));
    for (int i = 0; i < AccountService::kFreeAttempts; ++i) {
        EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("wrong")).contains(QStringLiteral("Wrong password")));
    }
    // Locked: even the right password is refused, without revealing anything.
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("right")).startsWith(QStringLiteral("Service not available")));
    // Other names are not affected.
    EXPECT_TRUE(getProfile(QStringLiteral("nobody"), QStringLiteral("x")).contains(QStringLiteral("is not registered")));

    now = now.addSecs(2);
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("wrong")).contains(QStringLiteral("Wrong password")));
    now = now.addSecs(1);
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("right")).startsWith(QStringLiteral("Service not available")))
        << "the second lock lasts longer than the first";
    now = now.addSecs(2);
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("right")).startsWith(QStringLiteral("{")));
    // A success forgets the history.
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("wrong")).contains(QStringLiteral("Wrong password")));
    EXPECT_TRUE(getProfile(QStringLiteral("frank"), QStringLiteral("right")).startsWith(QStringLiteral("{")));
}

TEST_F(AccountServiceTest, ChangePasswordReprotectsTheKeyFile) {
    ASSERT_EQ(create(QStringLiteral("gina"), QStringLiteral("old")), QStringLiteral("Profile created for gina."));
    const QByteArray certificate = store.find(QStringLiteral("gina"))->certificate;
    EXPECT_EQ(QString::fromUtf8(service
                                    .changePassword({{QStringLiteral("logInName"), QStringLiteral("Gina")},
                                                     {QStringLiteral("oldLogInPassword"), QStringLiteral("old")},
                                                     {QStringLiteral("newLogInPassword"), QStringLiteral("new")}})
                                    .body),
              QStringLiteral("Password changed for gina."));
    const auto account = store.find(QStringLiteral("gina"));
    EXPECT_FALSE(NivoProfileUtil::extractCerFromPfx(account->pfx, QStringLiteral("old")));
    EXPECT_EQ(NivoProfileUtil::extractCerFromPfx(account->pfx, QStringLiteral("new")), certificate)
        << "same key and certificate, new password";
}

}  // namespace
