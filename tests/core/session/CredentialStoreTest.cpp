// The stored credentials, against the in-memory store and against the desktop's real Secret
// Service. The latter runs only where the test script has started a private one
// (NIVOGX_TEST_SECRET_SERVICE=1), so that a developer's own sign-in is never touched.
#include <gtest/gtest.h>

#include <QProcess>

#include "LogRecorder.h"
#include "MemorySecretStore.h"
#include "UserSandbox.h"
#include "platform/QKKeychain.h"
#include "platform/QtKeychainStore.h"
#include "session/NivoGXUtil.h"

namespace {

enum class Backend { Memory, SecretService };

// Items the Secret Service itself lists for our service name, asked through its own CLI.
int secretServiceItems(const QString& service) {
    QProcess tool;
    tool.start(QStringLiteral("secret-tool"),
               {QStringLiteral("search"), QStringLiteral("--all"), QStringLiteral("server"), service});
    if (!tool.waitForFinished(10000)) {
        return -1;
    }
    const QByteArray out = tool.readAllStandardOutput();
    return static_cast<int>(out.count("\n[/") + (out.startsWith("[/") ? 1 : 0));
}

class CredentialStoreTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        if (GetParam() == Backend::SecretService) {
            if (qEnvironmentVariable("NIVOGX_TEST_SECRET_SERVICE") != QLatin1String("1")) {
                GTEST_SKIP() << "no private Secret Service (run through scripts/test)";
            }
            setDefaultKeychain(std::make_unique<QtKeychainStore>());
            ASSERT_TRUE(QKKeychainRemoveGenericEntry(nullptr, NivoGXUtil::kKeychainService))
                << "the Secret Service must be reachable and unlocked";
        }
        log.clear();
    }

    UserSandbox sandbox;
    LogRecorder log{QStringLiteral("nivogx.keychain")};
};

TEST_P(CredentialStoreTest, FirstStartHasNoCredentialsAndLogsNothing) {
    EXPECT_TRUE(NivoGXUtil::getNivoUsername().isNull());
    EXPECT_TRUE(NivoGXUtil::getNivoPassword().isNull());
    EXPECT_FALSE(NivoGXUtil::hasRequiredCredentials());
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(u'\n').toStdString();
}

TEST_P(CredentialStoreTest, SecondSaveReplacesNameAndPasswordInTheOneRecord) {
    NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), QStringLiteral("first"));
    // Values beyond ASCII come back unchanged.
    const QString name = QStringLiteral("jürgen.o'brien");
    const QString password = QStringLiteral("Grüße, 密码 ✓ \"quoted\" \\ 🔐");
    NivoGXUtil::saveNivoCredentials(name, password);
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), name);
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), password);
    if (GetParam() == Backend::Memory) {
        EXPECT_EQ(sandbox.keychain().records().keys(), QStringList{NivoGXUtil::kKeychainService});
    } else {
        EXPECT_EQ(secretServiceItems(NivoGXUtil::kKeychainService), 1);
    }
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(u'\n').toStdString();
}

TEST_P(CredentialStoreTest, SignOutKeepsTheNameAndForgetsThePassword) {
    NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), QStringLiteral("pw"));
    NivoGXUtil::logout();
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("alice"));
    EXPECT_TRUE(NivoGXUtil::getNivoPassword().isNull());
    EXPECT_FALSE(NivoGXUtil::hasRequiredCredentials());
}

INSTANTIATE_TEST_SUITE_P(Stores, CredentialStoreTest,
                         ::testing::Values(Backend::Memory, Backend::SecretService),
                         [](const auto& param) {
                             return param.param == Backend::Memory ? "Memory" : "SecretService";
                         });

TEST(CredentialStoreFailureTest, LockedStoreReadsAsSignedOutWithOneLinePerCall) {
    UserSandbox sandbox;
    NivoGXUtil::saveNivoCredentials(QStringLiteral("alice"), QStringLiteral("pw"));
    LogRecorder log(QStringLiteral("nivogx.keychain"));
    sandbox.keychain().failWith(5, QStringLiteral("The keychain is locked"));
    EXPECT_TRUE(NivoGXUtil::getNivoUsername().isNull());
    EXPECT_TRUE(NivoGXUtil::getNivoPassword().isNull());
    EXPECT_FALSE(NivoGXUtil::generateRequiredDirectory());
    EXPECT_EQ(log.lines().size(), 4) << "two reads, then the launch test reads both again";

    // A save that fails is silent to the caller; the record stays as it was.
    sandbox.keychain().failWritesWith(5, QStringLiteral("The keychain is locked"));
    NivoGXUtil::saveNivoCredentials(QStringLiteral("bob"), QStringLiteral("other"));
    sandbox.keychain().failWith(0, {});
    EXPECT_EQ(NivoGXUtil::getNivoUsername(), QStringLiteral("alice"));
    EXPECT_EQ(NivoGXUtil::getNivoPassword(), QStringLiteral("pw"));
}

}  // namespace
