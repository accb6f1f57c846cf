#include "platform/Stash/Set.h"

#include <gmock/gmock.h>

#include "platform/Stash/test/StashFixture.h"

namespace Pel::Stash {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPath = "hardware/pel/ocAft";
constexpr const char* kType = "Test::PairSet";

class SetTest : public Store::StoreFixture {
protected:
    using Collection = CollectionPublisher<std::uint64_t, Entry>;

    void SetUp() override {
        Mesa::tableTypeIs(kType, [](const std::string& path) -> Vel::Ref<Vel::Entity> {
            return Vel::make<PairSet>(path);
        });
    }
    Collection publisher(const std::string& collection) {
        return {*writer, *contents, std::string{kPath} + "/" + collection, "Test::Entry"};
    }
    void startProducer() {
        writer = makeWriter();
        contents = std::make_unique<ContentPublisher>(*writer);
    }
    void set(const std::string& collection, std::uint64_t key, std::string_view content) {
        publisher(collection).set(key, Entry{key, {}}, content);
    }
    void commit() {
        ASSERT_EQ(writer->commit(), "");
        settle();
    }
    void mount() {
        reader = makeReader();
        entityManager = Vel::make<Mesa::EntityManager>(reader);
        group = Vel::make<MountGroup>(entityManager, Vel::make<Manager>(reader), "stash");
        onReady = group->onReady().subscribe(
            [this] { journal.push_back(group->ready() ? "ready" : "not ready"); });
        group->mount(kPath, kType, {Mesa::TableKind::stashSet, {"fec", "nextHop"}});
        EXPECT_EQ(entityManager->entity(kPath), nullptr);
        group->close();
        pair = entityManager->entity<PairSet>(kPath);
        ASSERT_TRUE(pair) << "at once";
        EXPECT_EQ(pair->fec.size(), 0u);
        EXPECT_FALSE(group->ready());
    }
    std::string read(const PairSet::Collection& collection, std::uint64_t key) {
        const auto entry = collection.entry(key);
        if (!entry) { return "no entry"; }
        const auto record = destash<Text>(entry->handle, *group->storeManager());
        return record ? record->text : "none";
    }
    std::unique_ptr<Store::Writer> writer;
    std::unique_ptr<ContentPublisher> contents;
    Vel::Ref<Store::Reader> reader;
    Vel::Ref<Mesa::EntityManager> entityManager;
    Vel::Ref<MountGroup> group;
    Vel::Ref<PairSet> pair;
    Vel::Subscription onReady;
};

TEST_F(SetTest, IsReadyOnceAllCollectionsAreSwept) {
    startProducer();
    for (std::uint64_t key = 1; key <= 300; ++key) {
        set("fec", key, "fec");
        set("nextHop", key, "hop " + std::to_string(key));
    }
    commit();
    mount();
    std::size_t fecs = 0;
    std::size_t hops = 0;
    const auto subscription = pair->onReady().subscribe([&] {
        if (!group->ready()) { return; }
        fecs = pair->fec.size();
        hops = pair->nextHop.size();
    });
    settle();
    EXPECT_THAT(journal, ElementsAre("ready"));
    EXPECT_EQ(fecs, 300u);
    EXPECT_EQ(hops, 300u);
    EXPECT_EQ(read(pair->fec, 7), "fec");
    EXPECT_EQ(read(pair->nextHop, 7), "hop 7");
    EXPECT_EQ(read(pair->nextHop, 301), "no entry");
    EXPECT_EQ(pair->fec.entry(1)->handle, pair->fec.entry(2)->handle) << "stored once";
    EXPECT_NE(pair->fec.anchorValidator(), pair->nextHop.anchorValidator());
}

TEST_F(SetTest, IsNotReadyWhileOneCollectionIsMissing) {
    startProducer();
    set("fec", 1, "x");
    commit();
    mount();
    settle();
    EXPECT_FALSE(group->ready());
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_TRUE(pair->fec.has(1));
    std::vector<std::uint64_t> told;
    const auto subscription =
        pair->nextHop.onKey().subscribe([&](std::uint64_t key) { told.push_back(key); });
    set("nextHop", 5, "y");
    commit();
    EXPECT_THAT(journal, ElementsAre("ready"));
    EXPECT_THAT(told, ElementsAre(5u)) << "after the readiness, in the order of the log";
}

TEST_F(SetTest, EntriesAndRecordsGoInAndOutTogether) {
    startProducer();
    set("fec", 1, "x");
    set("nextHop", 1, "y");
    commit();
    mount();
    settle();
    std::vector<std::uint64_t> told;
    const auto subscription =
        pair->fec.onKey().subscribe([&](std::uint64_t key) { told.push_back(key); });
    const Handle before = pair->fec.entry(1)->handle;
    set("fec", 1, "x");
    commit();
    EXPECT_THAT(told, IsEmpty()) << "equal content is no change";
    EXPECT_EQ(pair->fec.entry(1)->handle, before);
    set("fec", 1, "z");
    commit();
    EXPECT_THAT(told, ElementsAre(1u));
    EXPECT_EQ(read(pair->fec, 1), "z");
    EXPECT_EQ(group->storeManager()->content(before), std::nullopt) << "its last user is gone";
    const Handle after = pair->fec.entry(1)->handle;
    publisher("fec").erase(1);
    publisher("fec").erase(2);
    commit();
    EXPECT_THAT(told, ElementsAre(1u, 1u));
    EXPECT_FALSE(pair->fec.has(1));
    EXPECT_EQ(group->storeManager()->content(after), std::nullopt);
}

TEST_F(SetTest, KeysThatVanishedWhileTheStoreWasAwayAreToldAfterTheReadiness) {
    startProducer();
    set("fec", 1, "x");
    set("fec", 2, "x");
    set("nextHop", 1, "y");
    commit();
    mount();
    settle();
    journal.clear();
    const auto subscription = pair->fec.onKey().subscribe([&](std::uint64_t key) {
        journal.push_back(std::to_string(key) + (pair->fec.has(key) ? " there" : " gone"));
    });
    writer.reset();
    std::filesystem::remove_all(options.directory);
    startProducer();
    set("fec", 2, "new");
    set("nextHop", 1, "y");
    ASSERT_EQ(writer->commit(), "");
    settleAfterASecond();
    EXPECT_THAT(journal, ElementsAre("not ready", "ready", "1 gone"));
    EXPECT_EQ(read(pair->fec, 2), "new");
}

TEST_F(SetTest, AnEntryThatDoesNotVerifyIsMissing) {
    startProducer();
    set("fec", 1, "x");
    writer->put(publisher("fec").table(), Store::KeyCodec<std::uint64_t>::encode(2), "short");
    commit();
    mount();
    settle();
    EXPECT_EQ(read(pair->fec, 2), "no entry");
    EXPECT_EQ(read(pair->fec, 1), "x");
    publisher("fec").erase(2);  // nor does it stop the producer
    commit();
    EXPECT_FALSE(pair->fec.has(2));
}

TEST_F(SetTest, BrokenPreconditions) {
    mount();
    group->mount("x", "Test::Nobody", {});
    EXPECT_DEATH(group->close(), "the type of a mounted set is not registered");
}

}  // namespace
}  // namespace Pel::Stash
