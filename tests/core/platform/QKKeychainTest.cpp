// The keychain operation set over a store that can fail on demand: results, the one-line
// diagnostics, and the record's attributes.
#include <gtest/gtest.h>

#include "LogRecorder.h"
#include "MemorySecretStore.h"
#include "platform/QKKeychain.h"

namespace {

const QString kService = QStringLiteral("NIVO_GX");

class QKKeychainTest : public ::testing::Test {
protected:
    MemorySecretStore store;
    LogRecorder log{QStringLiteral("nivogx.keychain")};
};

TEST_F(QKKeychainTest, MissingRecordIsNormalAtTheExistenceTestButLoggedAtLookup) {
    EXPECT_FALSE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_TRUE(log.lines().isEmpty());

    EXPECT_FALSE(QKKeychainGetKeychainItemRefWithServiceName(&store, kService).has_value());
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_EQ(log.lines().front(),
              QStringLiteral("Error: QKKeychainGetKeychainItemRefWithServiceName failed with "
                             "error code: 1 msg: Entry not found"));

    log.clear();
    EXPECT_TRUE(QKKeychainGetUserName(&store, kService).isNull());
    EXPECT_FALSE(QKKeychainSetPassword(&store, kService, QStringLiteral("x")));
    EXPECT_EQ(log.lines().size(), 2) << "one line per failing call, not one per layer";
}

TEST_F(QKKeychainTest, StoreFailureIsLoggedOnceWithCodeAndText) {
    store.failWith(4, QStringLiteral("Access to the keychain was denied"));
    EXPECT_FALSE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_FALSE(QKKeychainAddGenericEntry(&store, kService));
    EXPECT_FALSE(QKKeychainRemoveGenericEntry(&store, kService));
    EXPECT_EQ(log.lines(),
              QStringList({QStringLiteral("Error: QKKeychainDoesGenericEntryExist failed with error "
                                          "code: 4 msg: Access to the keychain was denied"),
                           QStringLiteral("Error: QKKeychainAddGenericEntry failed with error "
                                          "code: 4 msg: Access to the keychain was denied"),
                           QStringLiteral("Error: QKKeychainRemoveGenericEntry failed with error "
                                          "code: 4 msg: Access to the keychain was denied")}));
}

TEST_F(QKKeychainTest, AddCreatesAnEmptyRecordOnceOnly) {
    ASSERT_TRUE(QKKeychainAddGenericEntry(&store, kService));
    EXPECT_TRUE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_TRUE(QKKeychainGetUserName(&store, kService).isNull());
    EXPECT_TRUE(QKKeychainGetPassword(&store, kService).isNull());
    EXPECT_TRUE(log.lines().isEmpty());

    EXPECT_FALSE(QKKeychainAddGenericEntry(&store, kService));
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(QKKeychainTest, FieldsRoundTripIndependentlyAndEmptyReadsAsNone) {
    ASSERT_TRUE(QKKeychainAddGenericEntry(&store, kService));
    ASSERT_TRUE(QKKeychainSetUserName(&store, kService, QStringLiteral("zoë.o'neil")));
    ASSERT_TRUE(QKKeychainSetPassword(&store, kService, QStringLiteral("pä$$ 🔑")));
    ASSERT_TRUE(QKKeychainSetComment(&store, kService, QStringLiteral("work laptop")));
    EXPECT_EQ(QKKeychainGetUserName(&store, kService), QStringLiteral("zoë.o'neil"));
    EXPECT_EQ(QKKeychainGetPassword(&store, kService), QStringLiteral("pä$$ 🔑"));
    EXPECT_EQ(QKKeychainGetComment(&store, kService), QStringLiteral("work laptop"));

    ASSERT_TRUE(QKKeychainSetPassword(&store, kService, QString()));
    EXPECT_TRUE(QKKeychainGetPassword(&store, kService).isNull());
    EXPECT_EQ(QKKeychainGetUserName(&store, kService), QStringLiteral("zoë.o'neil"));

    auto item = QKKeychainGetKeychainItemRefWithServiceName(&store, kService);
    ASSERT_TRUE(item.has_value());
    EXPECT_EQ(QKKeychainGetItemAttributeTagForKeychainItemRef(*item, KeychainTag::Account),
              QStringLiteral("zoë.o'neil").toUtf8());
    EXPECT_TRUE(QKKeychainGetItemAttributeTagForKeychainItemRef(*item, "xxxx").isNull());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(QKKeychainTest, FailedWriteLeavesTheItemAsItWas) {
    ASSERT_TRUE(QKKeychainAddGenericEntry(&store, kService));
    auto item = QKKeychainGetKeychainItemRefWithServiceName(&store, kService);
    ASSERT_TRUE(item.has_value());
    store.failWritesWith(7, QStringLiteral("read-only"));
    EXPECT_FALSE(QKKeychainSetPasswordForKeychainItemRef(*item, "secret"));
    EXPECT_TRUE(QKKeychainGetPasswordForKeychainItemRef(*item).isNull());
    ASSERT_EQ(log.lines().size(), 1);
    EXPECT_TRUE(log.lines().front().startsWith(
        QStringLiteral("Error: QKKeychainSetPasswordForKeychainItemRef failed")));
}

TEST_F(QKKeychainTest, RenameMovesTheRecordAndRelabelsIt) {
    ASSERT_TRUE(QKKeychainAddGenericEntry(&store, kService));
    ASSERT_TRUE(QKKeychainSetUserName(&store, kService, QStringLiteral("alice")));
    ASSERT_TRUE(QKKeychainSetPassword(&store, kService, QStringLiteral("pw")));

    ASSERT_TRUE(QKKeychainRenameGenericEntry(&store, kService, QStringLiteral("NIVO_GX_OLD")));
    EXPECT_FALSE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_EQ(QKKeychainGetUserName(&store, QStringLiteral("NIVO_GX_OLD")),
              QStringLiteral("alice"));
    EXPECT_EQ(QKKeychainGetPassword(&store, QStringLiteral("NIVO_GX_OLD")), QStringLiteral("pw"));
    auto item = QKKeychainGetKeychainItemRefWithServiceName(&store, QStringLiteral("NIVO_GX_OLD"));
    ASSERT_TRUE(item.has_value());
    EXPECT_EQ(QKKeychainGetItemAttributeTagForKeychainItemRef(*item, KeychainTag::Label),
              QByteArray("NIVO_GX_OLD"));
    EXPECT_EQ(QKKeychainGetItemAttributeTagForKeychainItemRef(*item, KeychainTag::Service),
              QByteArray("NIVO_GX_OLD"));

    EXPECT_FALSE(QKKeychainRenameGenericEntry(&store, kService, QStringLiteral("x")))
        << "nothing left under the old name";
}

TEST_F(QKKeychainTest, RemoveSucceedsWhetherOrNotThereIsARecord) {
    EXPECT_TRUE(QKKeychainRemoveGenericEntry(&store, kService));
    ASSERT_TRUE(QKKeychainAddGenericEntry(&store, kService));
    EXPECT_TRUE(QKKeychainRemoveGenericEntry(&store, kService));
    EXPECT_FALSE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(QKKeychainTest, UnreadableRecordIsAFailureNotAnEmptyItem) {
    ASSERT_EQ(store.write(kService, "not a record").status, SecretStore::Status::Ok);
    EXPECT_TRUE(QKKeychainDoesGenericEntryExist(&store, kService));
    EXPECT_TRUE(QKKeychainGetUserName(&store, kService).isNull());
    EXPECT_EQ(log.lines().size(), 1);
}

}  // namespace
