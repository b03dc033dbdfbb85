// The command-line tool's keychain: the desktop store is asked once per record, and what the
// tool itself writes or removes, or a failure of the store, is never answered from memory wrongly.
#include <gtest/gtest.h>

#include "MemorySecretStore.h"
#include "platform/CachingSecretStore.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// The in-memory store, counting the reads that reach it.
class CountingStore final : public SecretStore {
public:
    Reply read(const QString& service) override {
        ++reads;
        return memory.read(service);
    }
    Reply write(const QString& service, const QByteArray& record) override {
        return memory.write(service, record);
    }
    Reply remove(const QString& service) override { return memory.remove(service); }

    MemorySecretStore memory;
    int reads = 0;
};

class CachingSecretStoreTest : public ::testing::Test {
protected:
    CachingSecretStoreTest() {
        auto store = std::make_unique<CountingStore>();
        backing = store.get();
        cache = std::make_unique<CachingSecretStore>(std::move(store));
    }

    CountingStore* backing = nullptr;
    std::unique_ptr<CachingSecretStore> cache;
};

TEST_F(CachingSecretStoreTest, AsksOncePerRecordAndKnowsItsOwnChanges) {
    (void)backing->memory.write(u"A"_s, "first");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(cache->read(u"A"_s).data, "first");
        EXPECT_EQ(cache->read(u"B"_s).status, SecretStore::Status::NotFound);
    }
    EXPECT_EQ(backing->reads, 2);

    EXPECT_EQ(cache->write(u"B"_s, "second").status, SecretStore::Status::Ok);
    EXPECT_EQ(cache->remove(u"A"_s).status, SecretStore::Status::Ok);
    EXPECT_EQ(cache->read(u"B"_s).data, "second");
    EXPECT_EQ(cache->read(u"A"_s).status, SecretStore::Status::NotFound);
    EXPECT_EQ(backing->reads, 2);
    // The changes went through to the store itself.
    EXPECT_EQ(backing->memory.records().value(u"B"_s), "second");
    EXPECT_FALSE(backing->memory.records().contains(u"A"_s));
}

TEST_F(CachingSecretStoreTest, FailuresAreNeverAnsweredFromMemory) {
    (void)backing->memory.write(u"A"_s, "kept");
    backing->memory.failWith(7, u"locked"_s);
    EXPECT_EQ(cache->read(u"A"_s).status, SecretStore::Status::Failed);
    backing->memory.failWith(0, {});
    EXPECT_EQ(cache->read(u"A"_s).data, "kept");

    // A failed write may or may not have changed the record: the next read asks the store.
    backing->memory.failWritesWith(9, u"read-only"_s);
    EXPECT_EQ(cache->write(u"A"_s, "new").status, SecretStore::Status::Failed);
    const int before = backing->reads;
    EXPECT_EQ(cache->read(u"A"_s).data, "kept");
    EXPECT_EQ(backing->reads, before + 1);
}

}  // namespace
