// The app's account calls against the real reference server over HTTPS on 127.0.0.1, trusted
// through the compiled-in communication CAs only.
#include <gtest/gtest.h>

#include "LiveServerTest.h"
#include "account/NivoProfileAdmin.h"
#include "account/NivoProfileCommon.h"
#include "account/NivoProfileUtil.h"

namespace {

class ClientServerTest : public LiveServerTest {
protected:
    static QString signUp(const QString& name, const QString& password) {
        return NivoProfileAdmin::createProfileWithLoginName(name, password, QStringLiteral("First"),
                                                            QStringLiteral("Last"),
                                                            QStringLiteral("first@example.org"));
    }
};

TEST_F(ClientServerTest, SignUpThenSignInGivesAUsableProfile) {
    ASSERT_EQ(signUp(QStringLiteral("Hanna"), QStringLiteral("Grüße 1")), QString());
    EXPECT_EQ(NivoProfileAdmin::checkLogInNameAvailability(QStringLiteral("HANNA")),
              QStringLiteral("Username is not available"));
    EXPECT_EQ(signUp(QStringLiteral("hanna"), QStringLiteral("other")),
              QStringLiteral("Username is not available"));

    const NivoProfile profile =
        NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("Hanna"), QStringLiteral("Grüße 1"));
    EXPECT_EQ(profile.StatusText, QString());
    ASSERT_TRUE(profile.isUsable());
    EXPECT_EQ(profile.LoginName, QStringLiteral("hanna"));
    EXPECT_EQ(NivoProfileUtil::extractCerFromPfx(profile.Pfx, QStringLiteral("Grüße 1")), profile.Cer);
    EXPECT_TRUE(NivoProfileUtil::verifyCer(profile.Cer, NivoProfileCommon::getNivoRootCer(),
                                           NivoProfileCommon::getNivoCommIntermediateCer()));
    EXPECT_EQ(profile.SyncDate.size(), 10);
    EXPECT_EQ(profile.SyncTime.size(), 8);

    const NivoProfile wrong =
        NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("hanna"), QStringLiteral("grüße 1"));
    EXPECT_EQ(wrong.StatusText, QStringLiteral("Wrong password"));
    EXPECT_TRUE(wrong.Pfx.isNull());
    EXPECT_EQ(NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("ivan"), QStringLiteral("x")).StatusText,
              QStringLiteral("Username is not registered"));
}

TEST_F(ClientServerTest, LookUpAnotherUsersCertificate) {
    ASSERT_EQ(signUp(QStringLiteral("jonas"), QStringLiteral("pw")), QString());
    const NivoProfile own =
        NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("jonas"), QStringLiteral("pw"));
    const NivoProfile found =
        NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(QStringLiteral("Jonas"), QStringLiteral("Jonas"));
    EXPECT_EQ(found.StatusText, QString());
    EXPECT_EQ(found.Cer, own.Cer);
    EXPECT_TRUE(found.Pfx.isNull());
    EXPECT_EQ(NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(QStringLiteral("kim"), QStringLiteral("kim")).StatusText,
              QStringLiteral("Invalid NIVO ID name"));
}

TEST_F(ClientServerTest, ChangedPasswordReplacesTheOldOne) {
    ASSERT_EQ(signUp(QStringLiteral("lena"), QStringLiteral("before")), QString());
    EXPECT_EQ(NivoProfileAdmin::changePasswordWithLoginName(QStringLiteral("Lena"), QStringLiteral("wrong"),
                                                           QStringLiteral("after")),
              QStringLiteral("Wrong password"));
    EXPECT_EQ(NivoProfileAdmin::changePasswordWithLoginName(QStringLiteral("Lena"), QStringLiteral("before"),
                                                           QStringLiteral("after")),
              QString());
    EXPECT_EQ(NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("lena"), QStringLiteral("before")).StatusText,
              QStringLiteral("Wrong password"));
    const NivoProfile after =
        NivoProfileAdmin::downloadProfileWithLogInName(QStringLiteral("lena"), QStringLiteral("after"));
    EXPECT_TRUE(after.isUsable());
    EXPECT_TRUE(NivoProfileAdmin::localLoginWithLoginName(QString(), QStringLiteral("after"), after.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(QStringLiteral("lena"), QStringLiteral("before"), after.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(QStringLiteral("lena"), QStringLiteral("after"),
                                                           QByteArray("not a key file")));
}

}  // namespace
