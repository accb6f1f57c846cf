#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "platform/Store/test/StoreFixture.h"
#include "test/support/NoMoreDescriptors.h"
#include "test/support/TraceCapture.h"

namespace Store {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The store comes, goes, and is replaced under a running reader.
class ReplacementTest : public StoreFixture {
protected:
    void storeIs(const std::vector<std::pair<std::string, std::string>>& records) {
        writer = makeWriter();
        const TableId a = writer->tableIs("a", "t", TableKind::table);
        for (const auto& [key, value] : records) { writer->put(a, key, value); }
        ASSERT_EQ(writer->commit(), "");
    }
    void storeDel() {
        writer.reset();
        std::filesystem::remove_all(options.directory);
    }
    std::unique_ptr<Writer> writer;
};

TEST_F(ReplacementTest, AStoreThatAppearsIsOpenedWithinASecond) {
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    EXPECT_FALSE(reader->open());
    EXPECT_EQ(reader->generation(), 0u);
    EXPECT_FALSE(reader->caughtUp());
    EXPECT_NE(reader->lastError().find("no store there yet"), std::string::npos);
    EXPECT_EQ(mount.value("1"), "gone");
    EXPECT_EQ(reader->table("a"), std::nullopt);
    EXPECT_THAT(reader->tables(""), IsEmpty());
    storeIs({{"1", "x"}});
    settleAfterASecond();
    EXPECT_TRUE(reader->open());
    EXPECT_EQ(reader->lastError(), "");
    EXPECT_NE(reader->generation(), 0u);
    EXPECT_THAT(mount.notes, ElementsAre("present"));
    EXPECT_THAT(mount.keys(), ElementsAre("1"));
    EXPECT_EQ(mount.value("1"), "x");
}

TEST_F(ReplacementTest, AStoreThatGoesIsToldAndItsKeysStayKnown) {
    storeIs({{"1", "x"}});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    storeDel();
    settleAfterASecond();
    EXPECT_FALSE(reader->open());
    EXPECT_THAT(mount.notes, ElementsAre("absent"));
    EXPECT_THAT(mount.keys(), ElementsAre("1"));
    EXPECT_EQ(mount.value("1"), "gone");
}

TEST_F(ReplacementTest, VanishedKeysAreToldAfterThePresence) {
    storeIs({{"1", "x"}, {"2", "x"}, {"3", "x"}});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    const auto before = reader->generation();
    storeDel();
    storeIs({{"2", "y"}, {"4", "y"}});
    settleAfterASecond();
    EXPECT_NE(reader->generation(), before);
    EXPECT_THAT(mount.notes, ElementsAre("absent", "present", "1 gone", "3 gone"));
    EXPECT_THAT(mount.keys(), ElementsAre("2", "4"));
    EXPECT_EQ(mount.value("2"), "y");
}

TEST_F(ReplacementTest, ATableThatIsMissingInTheNewStoreHasNoKeys) {
    storeIs({{"1", "x"}});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    storeDel();
    writer = makeWriter();
    settleAfterASecond();
    EXPECT_TRUE(reader->open());
    EXPECT_FALSE(mount.present());
    EXPECT_THAT(mount.notes, ElementsAre("absent", "1 gone"));
    EXPECT_THAT(mount.keys(), IsEmpty());
}

TEST_F(ReplacementTest, AWriterKilledBeforeTheBellIsHeardWithinASecond) {
    storeIs({});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    std::filesystem::remove(options.directory / "bell");
    settle();
    writer->put(writer->tableIs("a", "t", TableKind::table), "1", "x");
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(mount.notes, IsEmpty());
    settleAfterASecond();
    EXPECT_THAT(mount.notes, ElementsAre("1 there"));
}

TEST_F(ReplacementTest, WhoCannotWatchTheBellSaysSoAndLooksOnceASecond) {
    storeIs({});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    const TableId table = writer->tableIs("a", "t", TableKind::table);
    const auto write = [&](const std::string& key) {
        writer->put(table, key, "x");
        ASSERT_EQ(writer->commit(), "");
        mount.notes.clear();
        settle();
    };
    const TestSupport::TraceCapture traces;
    const std::filesystem::path bell = options.directory / "bell";
    {
        const TestSupport::NoMoreDescriptors none;
        std::filesystem::permissions(bell, std::filesystem::perms{0640});  // as if replaced
        settle();
        write("1");
        EXPECT_THAT(mount.notes, IsEmpty());
        settleAfterASecond();
        EXPECT_THAT(mount.notes, ElementsAre("1 there"));
        settleAfterASecond();
    }
    EXPECT_EQ(traces.count("bell " + bell.string() +
                           " cannot be watched (Too many open files): changes are looked for once "
                           "a second"),
              1u);
    settleAfterASecond();
    write("2");
    EXPECT_THAT(mount.notes, ElementsAre("2 there"));
}

/// A number key: decode refuses anything that is not eight bytes.
class NumberMount final : public KeyedMount<std::uint64_t> {
public:
    using KeyedMount::mountIs;
    std::vector<std::uint64_t> told;
    std::function<void(std::uint64_t)> reaction;

private:
    void changed(const std::uint64_t& key) override {
        told.push_back(key);
        if (reaction) { reaction(key); }
    }
};

TEST_F(ReplacementTest, KeysThatCannotBeDecodedAreCountedAndLeftOut) {
    writer = makeWriter();
    const TableId n = writer->tableIs("n", "t", TableKind::table);
    writer->put(n, KeyCodec<std::uint64_t>::encode(5), "x");
    writer->put(n, "bad", "x");
    ASSERT_EQ(writer->commit(), "");
    auto reader = makeReader();
    NumberMount mount;
    mount.mountIs(*reader, "n", "t", TableKind::table);
    settle();
    EXPECT_THAT(mount.keys(), ElementsAre(5u));
    EXPECT_EQ(mount.badKeys(), 1u);
    writer->put(n, "bad2", "x");
    writer->put(n, KeyCodec<std::uint64_t>::encode(4), "x");
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(mount.told, ElementsAre(4u));
    EXPECT_EQ(mount.badKeys(), 2u);
    EXPECT_EQ(mount.nextKey(std::nullopt), 4u);
    EXPECT_EQ(mount.nextKey(4), 5u);
    EXPECT_EQ(mount.nextKey(5), std::nullopt);
}

TEST_F(ReplacementTest, TheNextKeyIsThatOfTheMomentWhateverCameOrWentSinceTheLastOne) {
    writer = makeWriter();
    const TableId n = writer->tableIs("n", "t", TableKind::table);
    const auto put = [&](std::uint64_t key) {
        writer->put(n, KeyCodec<std::uint64_t>::encode(key), "x");
    };
    const auto commit = [&] {
        ASSERT_EQ(writer->commit(), "");
        settle();
    };
    for (const std::uint64_t key : {2U, 4U, 6U, 8U}) { put(key); }
    auto reader = makeReader();
    NumberMount mount;
    mount.mountIs(*reader, "n", "t", TableKind::table);
    commit();
    EXPECT_EQ(mount.nextKey(2), 4U);
    EXPECT_EQ(mount.nextKey(2), 4U) << "another walk asks the same";
    EXPECT_EQ(mount.nextKey(4), 6U);
    put(7);
    commit();
    EXPECT_EQ(mount.nextKey(6), 7U);
    writer->erase(n, KeyCodec<std::uint64_t>::encode(7));
    writer->erase(n, KeyCodec<std::uint64_t>::encode(8));
    commit();
    EXPECT_EQ(mount.nextKey(6), std::nullopt);
    EXPECT_EQ(mount.nextKey(7), std::nullopt);
    EXPECT_EQ(mount.nextKey(3), 4U);
    EXPECT_EQ(mount.nextKey(4), 6U);
    // A store with other keys: what was there is gone, and what comes is between.
    storeDel();
    writer = makeWriter();
    ASSERT_EQ(writer->tableIs("n", "t", TableKind::table), n);
    for (const std::uint64_t key : {4U, 5U}) { put(key); }
    commit();
    settleAfterASecond();
    EXPECT_EQ(mount.nextKey(4), 5U);
    EXPECT_EQ(mount.nextKey(5), std::nullopt);
}

TEST_F(ReplacementTest, AThrowInOneKeysReactionLosesNoOther) {
    options.logCapacity = 1;
    storeIs({{"1", "x"}, {"2", "x"}, {"3", "x"}, {"4", "x"}});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    mount.reaction = [](const std::string&) { throw std::runtime_error{"on purpose"}; };
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (const char* key : {"1", "2", "4"}) { writer->erase(a, key); }
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(mount.notes, ElementsAre("1 gone", "2 gone", "3 there", "4 gone"));
    EXPECT_THAT(mount.keys(), ElementsAre("3"));
}

TEST_F(ReplacementTest, AMountMayEndInAKeysReaction) {
    options.logCapacity = 1;
    storeIs({{"1", "x"}, {"2", "x"}, {"3", "x"}});
    auto reader = makeReader();
    auto mount = std::make_unique<NotingMount>();
    mount->mountIs(*reader, "a");
    settle();
    Strings told;
    mount->reaction = [&](const std::string& key) {
        told.push_back(key);
        mount.reset();
    };
    const TableId a = writer->tableIs("a", "t", TableKind::table);
    for (const char* key : {"1", "2", "3"}) { writer->erase(a, key); }
    ASSERT_EQ(writer->commit(), "");
    settle();
    EXPECT_THAT(told, ElementsAre("1"));
}

TEST_F(ReplacementTest, ManyVanishedKeysAreToldInManySlices) {
    constexpr int kCount = 2000;
    const auto key = [](int i) { return std::to_string(10'000 + i); };
    std::vector<std::pair<std::string, std::string>> records;
    for (int i = 0; i < kCount; ++i) { records.emplace_back(key(i), "x"); }
    storeIs(records);
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    storeDel();
    storeIs({{key(500), "y"}, {key(1500), "y"}});
    std::size_t most = 0;
    std::size_t before = 0;
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        most = std::max(most, mount.notes.size() - before);
        before = mount.notes.size();
    });
    settleAfterASecond();
    ASSERT_EQ(mount.notes.size(), 2U + kCount - 2U);
    EXPECT_THAT(Strings(mount.notes.begin(), mount.notes.begin() + 3),
                ElementsAre("absent", "present", key(0) + " gone"));
    std::set<std::string> gone(mount.notes.begin() + 2, mount.notes.end());
    EXPECT_EQ(gone.size(), kCount - 2U) << "each is told once";
    EXPECT_FALSE(gone.contains(key(500) + " gone"));
    EXPECT_THAT(mount.keys(), ElementsAre(key(500), key(1500)));
    EXPECT_LT(most, 1000U);
    EXPECT_TRUE(reader->caughtUp());
}

TEST_F(ReplacementTest, AStoreThatWentIsClosedBeforeItsSuccessorIsOpened) {
    storeIs({{"1", std::string(std::size_t{20} << 20, 'x')}});
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    std::string error;
    const std::weak_ptr<Environment> old = Environment::open(options, Access::read, error);
    ASSERT_FALSE(old.expired());
    storeDel();
    storeIs({{"1", "y"}});
    bool bothOpen = false;
    mount.notes.clear();
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        if (mount.notes.empty()) { return; }  // not noticed yet
        bothOpen = bothOpen || (!old.expired() && reader->open());
    });
    settleAfterASecond();
    EXPECT_FALSE(bothOpen);
    EXPECT_TRUE(old.expired());
    EXPECT_EQ(mount.value("1"), "y");
}

TEST_F(ReplacementTest, ARoundThatIsBrokenOffWhileItSettlesTellsTheRestInTheNext) {
    constexpr int kCount = 2000;
    const auto key = [](int i) { return std::to_string(10'000 + i); };
    std::vector<std::pair<std::string, std::string>> records;
    for (int i = 0; i < kCount; ++i) { records.emplace_back(key(i), "x"); }
    storeIs(records);
    auto reader = makeReader();
    NotingMount mount;
    mount.mountIs(*reader, "a");
    settle();
    mount.notes.clear();
    storeDel();
    storeIs({});
    NotingMount other;
    mount.reaction = [&](const std::string&) {
        if (mount.notes.size() == 700) { other.mountIs(*reader, "b"); }
        if (mount.notes.size() == 1400) { storeDel(), storeIs({}); }
    };
    settleAfterASecond();
    settleAfterASecond();
    std::set<std::string> gone(mount.notes.begin(), mount.notes.end());
    EXPECT_EQ(gone.size(), kCount + 2U) << "absent, present, and each key";
    EXPECT_THAT(mount.keys(), IsEmpty());
    EXPECT_TRUE(mount.present());
}

}  // namespace
}  // namespace Store
