#include <gmock/gmock.h>

#include "platform/Hubdb/EntityManager.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Store/test/StoreFixture.h"
#include "platform/Vel/Attribute.h"
#include "test/support/TraceCapture.h"

namespace Hubdb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Its record is "v=" and the value.
class Setting : public MirroredEntity {
public:
    using MirroredEntity::MirroredEntity;
    bool recordIs(std::string_view bytes) override {
        if (!bytes.starts_with("v=")) { return false; }
        value.set(std::string{bytes.substr(2)});
        return true;
    }
    void recordDel() override { value.set("default"); }
    Vel::Attribute<std::string> value{"default"};
};
class OtherSetting final : public Setting {
public:
    using Setting::Setting;
};

constexpr const char* kType = "Test::Setting";
constexpr const char* kOtherType = "Test::OtherSetting";

class NotingMounter final : public Mounter {
public:
    void doMountsComplete(MountStatus status,
                          const Vel::Ref<EntityManager>& /*entityManager*/) override {
        statuses.push_back(status);
        if (reaction) { reaction(); }
    }
    std::vector<MountStatus> statuses;
    std::function<void()> reaction;
};

class HubdbTest : public Store::StoreFixture {
protected:
    void SetUp() override {
        entityTypeIs(kType, [](const std::string& name) { return Vel::make<Setting>(name); });
        entityTypeIs(kOtherType,
                     [](const std::string& name) { return Vel::make<OtherSetting>(name); });
        configurationOptions.directory = dir.path() / "configuration";
    }
    void start() {
        reader = makeReader();
        manager =
            Vel::make<EntityManager>("agent",
                                     7,
                                     scheduler,
                                     reader,
                                     Vel::make<Store::Reader>(scheduler, configurationOptions),
                                     Vel::make<Mesa::EntityManager>(reader));
    }
    void close(const std::vector<std::array<std::string, 3>>& mounts) {
        const Vel::Ref<MountGroup> group = manager->mountGroup(mounter);
        for (const auto& [path, type, mode] : mounts) { group->mount(path, type, mode); }
        group->close(false, "", Kiln::Duration{});
    }
    /// Starts, mounts, and lets the mounts complete.
    void mount(const std::vector<std::array<std::string, 3>>& mounts) {
        if (!manager) { start(); }
        close(mounts);
        settle();
        ASSERT_THAT(mounter.statuses, ElementsAre(mountSuccess_));
    }
    void publish(const std::string& path,
                 const std::string& value,
                 const std::string& type = kType) {
        if (!writer) { writer = makeWriter(); }
        Publisher{*writer}.entityIs(path, type, value);
        ASSERT_EQ(writer->commit(), "");
    }
    void withdraw(const std::string& path) {
        Publisher{*writer}.entityDel(path);
        ASSERT_EQ(writer->commit(), "");
    }
    std::string value(const std::string& path) const {
        const auto setting = manager->entity<Setting>(path);
        return setting ? setting->value.get() : "none";
    }
    Store::Strings names(const std::string& path) const {
        Store::Strings all;
        for (const auto& [name, entity] : manager->entity<Vel::Dir>(path)->entities()) {
            all.push_back(name);
        }
        return all;
    }
    Store::Options configurationOptions{.directory = {}, .mapBytes = std::size_t{16} << 20};
    std::unique_ptr<Store::Writer> writer;
    Vel::Ref<Store::Reader> reader;
    Vel::Ref<EntityManager> manager;
    NotingMounter mounter;
};

TEST_F(HubdbTest, AMounterThatCancelsIsNotToldAndTheOthersAre) {
    start();
    NotingMounter leaving;
    const Vel::Ref<MountGroup> group = manager->mountGroup(leaving);
    group->mount("a", kType, "r");
    group->close(false, "", Kiln::Duration{});
    close({{"b", kType, "r"}});
    group->cancel();
    settle();
    EXPECT_THAT(leaving.statuses, IsEmpty());
    EXPECT_THAT(mounter.statuses, ElementsAre(mountSuccess_));
}

TEST_F(HubdbTest, MountsCompleteOnTheSchedulerNeverInsideTheCall) {
    publish("a", "v=1");
    start();
    close({{"a", kType, "r"}});
    EXPECT_THAT(mounter.statuses, IsEmpty());
    settle();
    EXPECT_THAT(mounter.statuses, ElementsAre(mountSuccess_));
    EXPECT_EQ(value("a"), "1");
    settleAfterASecond();
    EXPECT_EQ(mounter.statuses.size(), 1u) << "once";
}

TEST_F(HubdbTest, WithoutAStoreTheyCompleteInTheNextSliceWithDefaults) {
    mount({{"a", kType, "r"}, {"d", "Vel::Dir", "ri"}});
    EXPECT_EQ(value("a"), "default");
    EXPECT_THAT(names("d"), IsEmpty());
    publish("a", "v=1");
    publish("d/x", "v=2");
    settleAfterASecond();
    EXPECT_EQ(value("a"), "1");
    EXPECT_EQ(value("d/x"), "2");
}

TEST_F(HubdbTest, APathNobodyPublishedIsADefaultObjectAndNothingIsWritten) {
    writer = makeWriter();
    mount({{"a", kType, "r"}});
    EXPECT_EQ(value("a"), "default");
    EXPECT_THAT(reader->tables(""), IsEmpty());
}

TEST_F(HubdbTest, AMountedEntityIsKeptCurrent) {
    publish("a", "v=1");
    mount({{"a", kType, "r"}});
    const auto entity = manager->entity<Setting>("a");
    EXPECT_EQ(entity->name(), "a");
    Store::Strings seen;
    const auto subscription =
        entity->value.changed().subscribe([&] { seen.push_back(entity->value.get()); });
    publish("a", "v=2");
    settle();
    withdraw("a");
    settle();
    publish("a", "v=3");
    settle();
    EXPECT_THAT(seen, ElementsAre("2", "default", "3"));
    EXPECT_EQ(manager->entity("b"), nullptr) << "never mounted";
}

TEST_F(HubdbTest, ModeRMountsNoChildren) {
    publish("d/x", "v=1");
    mount({{"d", "Vel::Dir", "r"}});
    EXPECT_THAT(names("d"), IsEmpty());
}

TEST_F(HubdbTest, ModeRiMountsTheImmediateChildrenOnly) {
    publish("d/x", "v=1");
    publish("d/y", "v=2", kOtherType);
    publish("d/sub/z", "v=3");
    publish("dd/x", "v=4");
    mount({{"d", "Vel::Dir", "ri"}});
    EXPECT_THAT(names("d"), ElementsAre("x", "y"));
    EXPECT_EQ(value("d/x"), "1");
    EXPECT_TRUE(manager->entity<OtherSetting>("d/y")) << "types come with the records";
    EXPECT_EQ(manager->entity("d/sub/z"), nullptr);
}

TEST_F(HubdbTest, ModeRDMountsAllBelowAndFollowsComingAndGoing) {
    publish("d/x", "v=1");
    publish("d/sub/z", "v=3");
    mount({{"d", "Vel::Dir", "rD"}});
    EXPECT_THAT(names("d"), ElementsAre("sub", "x"));
    EXPECT_EQ(value("d/sub/z"), "3");
    publish("d/sub/deeper/w", "v=5");
    settle();
    EXPECT_EQ(value("d/sub/deeper/w"), "5");
    const auto held = manager->entity<Setting>("d/sub/deeper/w");
    withdraw("d/sub/deeper/w");
    withdraw("d/sub/z");
    settle();
    EXPECT_THAT(names("d"), ElementsAre("x")) << "directories without entities go";
    EXPECT_EQ(held->value.get(), "default");
}

TEST_F(HubdbTest, AChangeOfAChildIsAChangeOfItsDirectories) {
    publish("d/sub/z", "v=1");
    mount({{"d", "Vel::Dir", "rD"}});
    int changes = 0;
    const auto root = manager->entity<Vel::Dir>("d");
    const auto onRoot = root->onChange().subscribe([&] { ++changes; });
    int subChanges = 0;
    const auto onSub = root->entity<Vel::Dir>("sub")->onChange().subscribe([&] { ++subChanges; });
    publish("d/sub/z", "v=2");
    settle();
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(subChanges, 1);
    EXPECT_EQ(value("d/sub/z"), "2");
    publish("d/sub/y", "v=2");
    settle();
    EXPECT_GT(changes, 1);
    const int before = changes;
    withdraw("d/sub/y");
    settle();
    EXPECT_GT(changes, before);
}

TEST_F(HubdbTest, AChildThatChangesItsTypeIsReplaced) {
    publish("d/x", "v=1");
    mount({{"d", "Vel::Dir", "ri"}});
    publish("d/x", "v=2", kOtherType);
    settle();
    ASSERT_TRUE(manager->entity<OtherSetting>("d/x"));
    EXPECT_EQ(value("d/x"), "2");
}

TEST_F(HubdbTest, AnotherTypeAtStartFailsTheMount) {
    publish("a", "v=1", kOtherType);
    start();
    close({{"a", kType, "r"}});
    settle();
    EXPECT_THAT(mounter.statuses, ElementsAre(mountFailure_));
}

TEST_F(HubdbTest, AnotherTypeLaterIsTracedAndIgnored) {
    publish("a", "v=1");
    mount({{"a", kType, "r"}});
    const TestSupport::TraceCapture traces;
    publish("a", "v=2", kOtherType);
    settle();
    EXPECT_EQ(value("a"), "1");
    EXPECT_TRUE(traces.has("a: a record of type Test::OtherSetting, mounted as Test::Setting"));
    EXPECT_EQ(mounter.statuses.size(), 1u);
}

TEST_F(HubdbTest, AMalformedRecordIsTracedAndIgnored) {
    publish("a", "v=1");
    publish("d/x", "v=1");
    mount({{"a", kType, "r"}, {"d", "Vel::Dir", "ri"}});
    const TestSupport::TraceCapture traces;
    publish("a", "nonsense");
    publish("d/x", "nonsense");
    publish("d/new", "nonsense");
    publish("d/unknown", "v=1", "Test::Nobody");
    writer->put(writer->tableIs("hubdb", "hubdb", Store::TableKind::state), "d/frame", "\xFF\xFFx");
    publish("d/y", "v=2");
    settle();
    EXPECT_EQ(value("a"), "1");
    EXPECT_EQ(value("d/x"), "1");
    EXPECT_THAT(names("d"), ElementsAre("x", "y")) << "nothing else is lost";
    EXPECT_THAT(traces.texts("Hubdb"),
                ElementsAre("a: malformed record",
                            "d/x: malformed record",
                            "d/new: malformed record",
                            "d/unknown: nothing known of type Test::Nobody",
                            "d/frame: malformed record"));
}

TEST_F(HubdbTest, MgmtPathsComeFromTheConfiguration) {
    publish("mgmt/tolo/config", "v=wrong");
    std::string error;
    Store::Writer configuration{
        Store::Environment::open(configurationOptions, Store::Access::write, error)};
    Publisher{configuration}.entityIs("mgmt/tolo/config", kType, "v=right");
    ASSERT_EQ(configuration.commit(), "");
    mount({{"mgmt/tolo/config", kType, "r"}});
    EXPECT_EQ(value("mgmt/tolo/config"), "right");
}

TEST_F(HubdbTest, NamesAndCellPaths) {
    start();
    EXPECT_EQ(manager->name(), "agent");
    EXPECT_EQ(manager->cellPath("routing/fibReady"), "cell/7/routing/fibReady");
    EXPECT_EQ(manager->globalDir()->size(), 0u);
    EXPECT_TRUE(manager->sharedMemory());
}

TEST_F(HubdbTest, AReplacedStoreTakesAwayWhatItDoesNotHave) {
    publish("a", "v=1");
    publish("b", "v=1");
    publish("d/x", "v=1");
    mount({{"a", kType, "r"}, {"b", kType, "r"}, {"d", "Vel::Dir", "ri"}});
    writer.reset();
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    EXPECT_EQ(value("a"), "1") << "kept while the store is away";
    publish("b", "v=2");
    publish("d/y", "v=2");
    settleAfterASecond();
    EXPECT_EQ(value("a"), "default");
    EXPECT_EQ(value("b"), "2");
    EXPECT_THAT(names("d"), ElementsAre("y"));
}

TEST_F(HubdbTest, MountsMadeLaterAndInsideTheCompletion) {
    publish("a", "v=1");
    publish("b", "v=2");
    start();
    mounter.reaction = [&] {
        if (mounter.statuses.size() == 1) { close({{"b", kType, "r"}}); }
    };
    close({{"a", kType, "r"}});
    settle();
    EXPECT_THAT(mounter.statuses, ElementsAre(mountSuccess_, mountSuccess_));
    EXPECT_EQ(value("b"), "2");
}

TEST_F(HubdbTest, APathMountedLaterHasThePresentValueAndIsKeptCurrent) {
    publish("a", "v=1");
    publish("b", "v=2");
    mount({{"a", kType, "r"}});
    publish("b", "v=3");
    publish("d/x", "v=4");
    settle();
    close({{"b", kType, "r"}, {"d", "Vel::Dir", "ri"}});
    settle();
    EXPECT_EQ(value("b"), "3");
    EXPECT_EQ(value("d/x"), "4");
    publish("b", "v=5");
    settle();
    EXPECT_EQ(value("b"), "5");
}

TEST_F(HubdbTest, AManagerThatDiesFirstNeverCallsTheMounter) {
    start();
    close({{"a", kType, "r"}});
    manager = nullptr;
    settle();
    EXPECT_THAT(mounter.statuses, IsEmpty());
}

TEST_F(HubdbTest, AReactionThatThrowsKeepsNoOtherFromBeingCurrent) {
    publish("d/x", "v=1");
    publish("d/y", "v=1");
    mount({{"d", "Vel::Dir", "ri"}, {"d/x", kType, "r"}});
    const auto subscription = manager->entity<Setting>("d/x")->value.changed().subscribe(
        [] { throw std::runtime_error{""}; });
    int changes = 0;
    const auto onDir = manager->entity<Vel::Dir>("d")->onChange().subscribe([&] { ++changes; });
    publish("d/x", "v=2");
    publish("d/y", "v=2");
    settle();
    EXPECT_EQ(value("d/x"), "2");
    EXPECT_EQ(value("d/y"), "2");
    EXPECT_EQ(changes, 2);
}

TEST_F(HubdbTest, BrokenPreconditions) {
    mount({});
    close({{"a", "Test::Nobody", "r"}});
    EXPECT_DEATH(settle(), "the type of a mounted path is not registered");
    mounter.statuses.clear();
}

}  // namespace
}  // namespace Hubdb
