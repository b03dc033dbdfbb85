// The checks of the sign-up and sign-in fields, in the order a user meets them, and the names
// of exported files.
#include <gtest/gtest.h>

#include <QDateTime>

#include "platform/ExportFileName.h"
#include "session/SignIn.h"
#include "session/SignUp.h"

namespace {

struct Fields {
    const char* name;
    const char* password;
    const char* retyped;
    const char* message;  // nullptr: accepted
};

TEST(AccountRulesTest, SignUpReportsTheFirstProblemOnly) {
    const Fields cases[] = {
        {"", "", "", "Username required"},
        {"bob", "", "x", "Password required"},
        {"bob", "pw", "", "Re-type Password required"},
        {"john doe", "pw", "other", "Username is not considered valid"},
        {"john-doe", "pw", "pw", "Username is not considered valid"},
        {"bob@home", "pw", "pw", "Username is not considered valid"},
        {"jürgen", "pw", "pw", "Username is not considered valid"},
        {"bob", "Secret", "secret", "Passwords do not match"},
        {"o'brien_2.x", "pw", "pw", nullptr},
        {"Bob", "pw", "pw", nullptr},
    };
    for (const Fields& c : cases) {
        const auto problem = SignUp::checkFields(
            QString::fromUtf8(c.name), QString::fromUtf8(c.password), QString::fromUtf8(c.retyped));
        if (c.message == nullptr) {
            EXPECT_FALSE(problem.has_value()) << c.name;
        } else {
            ASSERT_TRUE(problem.has_value()) << c.name;
            EXPECT_EQ(problem->message, QString::fromUtf8(c.message)) << c.name;
        }
    }
    // The missing retyped password is explained with the password's own text.
    EXPECT_EQ(SignUp::checkFields(QStringLiteral("bob"), QStringLiteral("pw"), QString())
                  ->informativeText,
              QStringLiteral("Please enter your NIVO password."));
    EXPECT_EQ(
        SignUp::checkFields(QStringLiteral("bob"), QStringLiteral("pw"), QStringLiteral("px"))
            ->informativeText,
        QStringLiteral("Please ensure that both Password and Re-type password are the same."));
}

TEST(AccountRulesTest, OnlyAnUnreachableServerOffersTheProfileFile) {
    const auto failure = [](const char* text) {
        return NivoProfile::failure(QString::fromLatin1(text));
    };
    EXPECT_TRUE(SignIn::offersProfileFile(failure("A connection failure occurred")));
    EXPECT_TRUE(SignIn::offersProfileFile(
        failure("The account server's certificate is not trusted (example.org)")));
    EXPECT_FALSE(SignIn::offersProfileFile(failure("a connection failure occurred")));
    EXPECT_FALSE(SignIn::offersProfileFile(failure("The account server answered 502 Bad Gateway.")));
    EXPECT_FALSE(SignIn::offersProfileFile(failure("The request timed out")));
    EXPECT_FALSE(SignIn::offersProfileFile(failure("Wrong password")));

    NivoProfile pfxOnly;  // a PFX the password does not open: no certificate, no text
    pfxOnly.Pfx = QByteArrayLiteral("pfx");
    pfxOnly.StatusText = QString();
    EXPECT_FALSE(SignIn::succeeded(pfxOnly));
    EXPECT_FALSE(SignIn::offersProfileFile(pfxOnly));
}

TEST(AccountRulesTest, ExportNamesCarryTheirTypeOnce) {
    const QDateTime when(QDate(2026, 3, 4), QTime(5, 6, 7));
    EXPECT_EQ(ExportFileName::profileName(QStringLiteral("Alice"), when),
              QStringLiteral("profile_Alice_20260304050607.vts"));
    EXPECT_EQ(ExportFileName::contactsName(QStringLiteral("Alice"), when),
              QStringLiteral("contacts_Alice_20260304050607.cbkm"));
    const QString type = ExportFileName::kContactsType;
    EXPECT_EQ(ExportFileName::withType(QStringLiteral("/d/x.Cbkm"), type),
              QStringLiteral("/d/x.Cbkm"));
    EXPECT_EQ(ExportFileName::withType(QStringLiteral("/d/x"), type), QStringLiteral("/d/x.cbkm"));
    EXPECT_EQ(ExportFileName::withType(QStringLiteral("/d/x.txt"), type),
              QStringLiteral("/d/x.txt.cbkm"));
    EXPECT_EQ(
        ExportFileName::withType(QStringLiteral("/d/profile.txt"), ExportFileName::kProfileType),
        QStringLiteral("/d/profile.txt.vts"));
}

}  // namespace
