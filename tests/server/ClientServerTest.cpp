// The app's account calls against the real reference server over HTTPS on 127.0.0.1, trusted
// through the compiled-in communication CAs only.
#include <gtest/gtest.h>

#include "LiveServerTest.h"
#include "account/NivoProfileAdmin.h"
#include "account/NivoProfileCommon.h"
#include "account/NivoProfileUtil.h"

namespace {

using namespace Qt::Literals::StringLiterals;

class ClientServerTest : public LiveServerTest {};

// The server's own refusals are AccountServiceTest's, the texts they become NivoProfileAdminTest's;
// here what the server issues must work in the app.
TEST_F(ClientServerTest, TheIssuedProfileOpensChainsToTheBuiltInRootAndFollowsAPasswordChange) {
    ASSERT_EQ(NivoProfileAdmin::createProfileWithLoginName(u"Hanna"_s, u"Grüße 1"_s, u"First"_s,
                                                           u"Last"_s, u"first@example.org"_s),
              QString());
    const NivoProfile profile =
        NivoProfileAdmin::downloadProfileWithLogInName(u"Hanna"_s, u"Grüße 1"_s);
    EXPECT_EQ(profile.StatusText, QString());
    ASSERT_TRUE(profile.isUsable());
    EXPECT_EQ(profile.LoginName, u"hanna"_s);
    EXPECT_EQ(NivoProfileUtil::extractCerFromPfx(profile.Pfx, u"Grüße 1"_s), profile.Cer);
    EXPECT_TRUE(NivoProfileUtil::verifyCer(profile.Cer, NivoProfileCommon::getNivoRootCer(),
                                           NivoProfileCommon::getNivoCommIntermediateCer()));
    EXPECT_EQ(profile.SyncDate.size(), 10);
    EXPECT_EQ(profile.SyncTime.size(), 8);

    // Looked up by another user: the certificate, never the key file.
    const NivoProfile found =
        NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(u"HANNA"_s, u"HANNA"_s);
    EXPECT_EQ(found.StatusText, QString());
    EXPECT_EQ(found.Cer, profile.Cer);
    EXPECT_TRUE(found.Pfx.isNull());
    EXPECT_EQ(NivoProfileAdmin::downloadNivoIdWithRequesterLogInName(u"kim"_s, u"kim"_s).StatusText,
              u"Invalid NIVO ID name"_s);

    // Passwords count letter case; a changed one replaces the old one in the new key file.
    EXPECT_EQ(NivoProfileAdmin::changePasswordWithLoginName(u"Hanna"_s, u"grüße 1"_s, u"after"_s),
              u"Wrong password"_s);
    EXPECT_EQ(NivoProfileAdmin::changePasswordWithLoginName(u"Hanna"_s, u"Grüße 1"_s, u"after"_s),
              QString());
    EXPECT_EQ(NivoProfileAdmin::downloadProfileWithLogInName(u"hanna"_s, u"Grüße 1"_s).StatusText,
              u"Wrong password"_s);
    const NivoProfile after =
        NivoProfileAdmin::downloadProfileWithLogInName(u"hanna"_s, u"after"_s);
    EXPECT_TRUE(after.isUsable());
    EXPECT_TRUE(NivoProfileAdmin::localLoginWithLoginName(QString(), u"after"_s, after.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(u"hanna"_s, u"Grüße 1"_s, after.Pfx));
    EXPECT_FALSE(NivoProfileAdmin::localLoginWithLoginName(u"hanna"_s, u"after"_s,
                                                           QByteArray("not a key file")));
}

}  // namespace
