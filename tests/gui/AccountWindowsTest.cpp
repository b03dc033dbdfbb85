// The sign-in and sign-up windows driven like a user would, against the real account server.
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>

#include "GuiTestKit.h"
#include "account/AccountServer.h"
#include "account/LoginController.h"
#include "account/RegisterController.h"
#include "session/NivoGXUtil.h"

using namespace Qt::Literals::StringLiterals;

namespace {

using Kind = ScriptedPrompter::Kind;

const QString kSignInFailed = QStringLiteral("Sign in Failed");
const QString kSigningIn = QStringLiteral("Signing in...");

class SignInWindowTest : public GuiTest {
protected:
    void signIn(const QString& name, const QString& password) {
        typeInto(&login, "fieldUsername", name);
        typeInto(&login, "fieldPassword", password);
        clickButton(&login, "loginButton");
    }

    LoginController login{hub, prompter};
    QSignalSpy loginCompleted{&hub, &NotificationHub::loginCompleted};
    QSignalSpy terminate{&login, &LoginController::terminateRequested};
};

TEST_F(SignInWindowTest, BlankFieldsAreRefusedBeforeAnythingIsSent) {
    login.show();
    signIn(QStringLiteral("   "), QStringLiteral("pw"));
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Username required"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("Please enter your NIVO username."));

    signIn(QStringLiteral("alice"), QStringLiteral(" \t "));
    ASSERT_EQ(prompter.count(), 2);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Password required"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("Please enter your NIVO password."));
    EXPECT_FALSE(login.isProcessing());
    EXPECT_EQ(fieldText(&login, "labelStatus"), QString());
}

TEST_F(SignInWindowTest, WrongPasswordShowsTheServersTextAndKeepsNothing) {
    createAccount(QStringLiteral("alice"), QStringLiteral("right"));
    login.show();
    typeInto(&login, "fieldUsername", QStringLiteral("alice"));
    typeInto(&login, "fieldPassword", QStringLiteral("wrong"));
    QTest::keyClick(login.findChild<QLineEdit*>(QStringLiteral("fieldPassword")), Qt::Key_Return);
    EXPECT_TRUE(login.isProcessing());
    EXPECT_TRUE(busy(&login));
    EXPECT_EQ(fieldText(&login, "labelStatus"), kSigningIn);
    clickButton(&login, "loginButton");  // ignored while the first request runs

    ASSERT_TRUE(eventually([&] { return prompter.count() > 0; }));
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Alert);
    EXPECT_EQ(prompter.last().message, kSignInFailed);
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("Wrong password"));
    EXPECT_EQ(fieldText(&login, "labelStatus"), kSignInFailed);
    EXPECT_FALSE(login.isProcessing());
    EXPECT_FALSE(busy(&login));
    EXPECT_TRUE(sandbox.keychain().records().isEmpty());
    EXPECT_FALSE(NivoGXUtil::getNivoProfile().has_value());
    EXPECT_EQ(loginCompleted.count(), 0);
}

TEST_F(SignInWindowTest, SuccessKeepsTheNameAsTypedAndClosesWithoutQuitting) {
    createAccount(QStringLiteral("alice"), QStringLiteral("pw"));
    login.show();
    signIn(QStringLiteral("  Alice "), QStringLiteral(" pw "));
    ASSERT_TRUE(eventually([&] { return loginCompleted.count() == 1; }));
    EXPECT_EQ(prompter.count(), 0);
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("Alice"));
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), QStringLiteral("pw"));
    ASSERT_TRUE(NivoGXUtil::getNivoProfile().has_value());
    EXPECT_TRUE(NivoGXUtil::getNivoProfile()->isUsable());
    EXPECT_TRUE(QFileInfo::exists(NivoGXUtil::contactDBPath(QStringLiteral("Alice"))));
    EXPECT_FALSE(login.isVisible());
    EXPECT_EQ(terminate.count(), 0);
}

TEST_F(SignInWindowTest, UnreachableServerOffersTheProfileFileAndACancelledChoiceStaysBusy) {
    stopServer();
    login.show();
    signIn(QStringLiteral("alice"), QStringLiteral("pw"));
    ASSERT_TRUE(eventually([&] { return prompter.count() > 0; }));
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().kind, Kind::Ask);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Unable to connect to NIVO Server"));
    EXPECT_EQ(prompter.last().informativeText,
              QStringLiteral("Do you wish to sign in using your NIVO offline profile?"));
    // "No": the window stays, idle.
    EXPECT_EQ(fieldText(&login, "labelStatus"), kSignInFailed);
    EXPECT_FALSE(login.isProcessing());
    EXPECT_FALSE(busy(&login));

    // "Yes", and the panel is cancelled: the window stays busy for good.
    prompter.clear();
    prompter.answerAsk(true);
    signIn(QStringLiteral("alice"), QStringLiteral("pw"));
    ASSERT_TRUE(eventually([&] { return prompter.count() == 2; }));
    const auto& panel = prompter.last();
    EXPECT_EQ(panel.kind, Kind::Open);
    EXPECT_EQ(panel.message, QStringLiteral("Select NIVO Profile file to sign in"));
    EXPECT_EQ(panel.openPanel.allowedTypes, QStringList{QStringLiteral("vts")});
    EXPECT_FALSE(panel.openPanel.multipleSelection);
    EXPECT_FALSE(panel.openPanel.chooseFolders);

    EXPECT_TRUE(login.isProcessing());
    EXPECT_TRUE(busy(&login));
    EXPECT_EQ(fieldText(&login, "labelStatus"), kSigningIn);
    clickButton(&login, "loginButton");
    QTest::qWait(0);
    EXPECT_EQ(prompter.count(), 2) << "no further sign-in starts";
    login.close();
    EXPECT_EQ(terminate.count(), 1);
}

// Signing in with an exported file, once the server is gone, is AppDelegateTest's; here the
// file's refusals reach the alert.
TEST_F(SignInWindowTest, ProfileFileSignInSaysWhyAFileIsRefused) {
    createAccount(QStringLiteral("alice"), QStringLiteral("pw"));
    const QString profileFile = writeProfileFile(QStringLiteral("alice"), QStringLiteral("pw"));
    const QString notAProfile = makeFile(QStringLiteral("notes.vts"));
    stopServer();
    login.show();

    for (const auto& [name, password, file, why] :
         {std::tuple{u"alice"_s, u"pw"_s, notAProfile,
                     u"Unable to retrieve NIVO Profile from file."_s},
          std::tuple{u"bob"_s, u"pw"_s, profileFile, u"Invalid Username"_s},
          std::tuple{u"alice"_s, u"PW"_s, profileFile, u"Invalid password"_s}}) {
        prompter.clear();
        prompter.answerAsk(true);
        prompter.answerOpen({file});
        signIn(name, password);
        ASSERT_TRUE(eventually([&] { return prompter.count() == 3; })) << why.toStdString();
        EXPECT_EQ(prompter.last().message, kSignInFailed);
        EXPECT_EQ(prompter.last().informativeText, why);
        EXPECT_EQ(fieldText(&login, "labelStatus"), kSignInFailed);
        EXPECT_FALSE(login.isProcessing());
    }
    EXPECT_TRUE(sandbox.keychain().records().isEmpty());
    EXPECT_EQ(loginCompleted.count(), 0);
}

class SignUpWindowTest : public GuiTest {
protected:
    void fill(QWidget* window, const QString& name, const QString& password,
              const QString& retyped) {
        typeInto(window, "textFieldNivoAccount", name);
        typeInto(window, "textFieldNivoPassword", password);
        typeInto(window, "textFieldRetypePassword", retyped);
    }

    LoginController login{hub, prompter};
    QSignalSpy registered{&hub, &NotificationHub::registrationCompleted};
    QSignalSpy loginCompleted{&hub, &NotificationHub::loginCompleted};
};

TEST_F(SignUpWindowTest, InvalidNameIsRefusedBeforeAnythingIsSent) {
    login.RegisterButtonTapped();
    RegisterController* signUp = login.registerController();
    ASSERT_NE(signUp, nullptr);
    EXPECT_TRUE(signUp->isVisible());
    fill(signUp, QStringLiteral("john doe"), QStringLiteral("pw"), QStringLiteral("pw"));
    clickButton(signUp, "registerButton");
    ASSERT_EQ(prompter.count(), 1);
    EXPECT_EQ(prompter.last().message, QStringLiteral("Username is not considered valid"));
    EXPECT_EQ(prompter.last().informativeText,
              QStringLiteral("Username may only contain the following characters: a-z, A-Z, "
                             "0-9, .'_ "));
    EXPECT_FALSE(signUp->isProcessing());
    EXPECT_EQ(fieldText(signUp, "textFieldStatus"), QString());
}

TEST_F(SignUpWindowTest, TakenNameShowsTheServersTextAndKeepsTheWindow) {
    createAccount(QStringLiteral("bob"), QStringLiteral("first"));
    login.RegisterButtonTapped();
    RegisterController* signUp = login.registerController();
    fill(signUp, QStringLiteral("Bob"), QStringLiteral("pw"), QStringLiteral("pw"));
    QTest::keyClick(signUp->findChild<QLineEdit*>(QStringLiteral("textFieldRetypePassword")),
                    Qt::Key_Enter);
    EXPECT_EQ(fieldText(signUp, "textFieldStatus"), QStringLiteral("Registering ..."));
    EXPECT_TRUE(busy(signUp));
    ASSERT_TRUE(eventually([&] { return prompter.count() > 0; }));
    EXPECT_EQ(prompter.last().message, QStringLiteral("Registration Failed"));
    EXPECT_EQ(prompter.last().informativeText, QStringLiteral("Username is not available"));
    EXPECT_EQ(fieldText(signUp, "textFieldStatus"), QStringLiteral("Registration Failed"));
    EXPECT_FALSE(busy(signUp));
    EXPECT_TRUE(signUp->isVisible());
    EXPECT_EQ(fieldText(signUp, "textFieldNivoAccount"), QStringLiteral("Bob"));
    EXPECT_EQ(registered.count(), 0);
}

TEST_F(SignUpWindowTest, CancelDuringTheRequestStillSignsInTheNewAccount) {
    login.show();
    login.RegisterButtonTapped();
    RegisterController* signUp = login.registerController();
    fill(signUp, QStringLiteral(" Carol "), QStringLiteral("secret "), QStringLiteral("secret"));
    clickButton(signUp, "registerButton");
    ASSERT_TRUE(signUp->isProcessing());
    clickButton(signUp, "cancelButton");
    EXPECT_FALSE(signUp->isVisible());

    ASSERT_TRUE(eventually([&] { return loginCompleted.count() == 1; }));
    ASSERT_EQ(registered.count(), 1);
    EXPECT_EQ(registered.at(0).at(0).toString(), QStringLiteral("Carol"));
    EXPECT_EQ(registered.at(0).at(1).toString(), QStringLiteral("secret"));
    EXPECT_EQ(fieldText(&login, "fieldUsername"), QStringLiteral("Carol"));
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("Carol"));
    EXPECT_EQ(NivoGXUtil::getNivoProfile()->LoginName, QStringLiteral("carol"));
    EXPECT_EQ(prompter.count(), 0);
}

TEST_F(SignUpWindowTest, OpeningSignUpAgainGivesAFreshWindow) {
    login.RegisterButtonTapped();
    QPointer<RegisterController> first = login.registerController();
    fill(first, QStringLiteral("dave"), QString(), QString());
    login.RegisterButtonTapped();
    RegisterController* second = login.registerController();
    EXPECT_NE(second, first.data());
    EXPECT_EQ(fieldText(second, "textFieldNivoAccount"), QString());
    ASSERT_TRUE(eventually([&] { return first.isNull(); }));
}

}  // namespace
