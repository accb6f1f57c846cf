#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

namespace Gale {
namespace {

using testing::ElementsAre;

constexpr const char* kZoo = "/zoo[name=main]: name=main";
constexpr const char* kRed =
    "/zoo[name=main]/beasts/beast[index=1]: index=1 state/index=1 state/colour=red";
constexpr const char* kBlue =
    "/zoo[name=main]/beasts/beast[index=2]: index=2 state/index=2 state/colour=blue";
constexpr const char* kHerd =
    "/zoo[name=main]/herds/herd[id=7]: id=7 members/member[index=1]/index=1";
constexpr const char* kField = "/zoo[name=main]/fields/field[id=5]: id=5 state/herd=7";

using Subscribe = ServiceFixture;

TEST_F(Subscribe, OnceGivesAllInOrderThenOneSyncThenEndsWithOk) {
    populate();
    const Rpc rpc = subscribe("mode: ONCE subscription {}");
    EXPECT_THAT(brief(rpc), ElementsAre(kRed, kBlue, kHerd, kField, kZoo, "sync"));
    EXPECT_EQ(rpc.status(), "0");
    EXPECT_EQ(service->subscribers().size(), 0U);
}

TEST_F(Subscribe, OnceIgnoresModesOfItsSubscriptions) {
    populate();
    const Rpc rpc = subscribe(
        "mode: ONCE subscription { mode: SAMPLE heartbeat_interval: 1 "
        "path { elem { name: 'zoo' } elem { name: 'herds' } } }");
    EXPECT_THAT(brief(rpc), ElementsAre(kHerd, "sync"));
}

TEST_F(Subscribe, StreamGivesTheStateOneSyncAndThenOnlyChanges) {
    populate();
    const Rpc rpc = subscribe("subscription { mode: ON_CHANGE }");
    EXPECT_THAT(brief(rpc), ElementsAre(kRed, kBlue, kHerd, kField, kZoo, "sync"));
    rpc.reply().data.clear();
    view->beasts.set(1, "red");  // equal: no change
    settle();
    EXPECT_THAT(brief(rpc), ElementsAre());
    view->beasts.set(1, "green");
    settle();
    EXPECT_THAT(brief(rpc),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]: index=1 state/index=1 "
                            "state/colour=green"));
    EXPECT_EQ(rpc.status(), "");
}

TEST_F(Subscribe, ValueEncodedEntriesChangeToo) {
    populate();
    const Rpc rpc = subscribe("subscription {}");
    rpc.reply().data.clear();
    view->herds.set(8, {{2}});
    view->fields.set(5, 8);
    settle();
    EXPECT_THAT(
        brief(rpc),
        ElementsAre("/zoo[name=main]/herds/herd[id=8]: id=8 members/member[index=2]/index=2",
                    "/zoo[name=main]/fields/field[id=5]: id=5 state/herd=8"));
}

TEST_F(Subscribe, DeletesGoInReverseAndAreStampedLater) {
    populate();
    const Rpc rpc = subscribe("subscription {}");
    std::map<std::string, std::int64_t> stampOf;
    for (const auto& response : rpc.responses()) {
        if (response.has_update()) {
            stampOf[pathText(response.update().prefix(), {})] = response.update().timestamp();
        }
    }
    rpc.reply().data.clear();
    view->beasts.clear();
    view->herds.clear();
    view->fields.clear();
    settle();
    EXPECT_THAT(brief(rpc),
                ElementsAre("delete /zoo[name=main]/fields/field[id=5]",
                            "delete /zoo[name=main]/herds/herd[id=7]",
                            "delete /zoo[name=main]/beasts/beast[index=1]",
                            "delete /zoo[name=main]/beasts/beast[index=2]"));
    for (const auto& response : rpc.responses()) {
        const gnmi::Notification& notification = response.update();
        EXPECT_EQ(notification.prefix().elem_size(), 0) << "absolute path in delete";
        EXPECT_EQ(notification.prefix().origin(), "openconfig");
        EXPECT_FALSE(notification.atomic());
        EXPECT_EQ(notification.update_size(), 0);
        EXPECT_GT(notification.timestamp(), stampOf.at(pathText({}, notification.delete_(0))));
    }
}

TEST_F(Subscribe, EntriesAreAtomicWithPrefixAtTheEntry) {
    populate();
    const Rpc rpc = subscribe("mode: ONCE subscription {}");
    for (const auto& response : rpc.responses()) {
        if (!response.has_update()) { continue; }
        const gnmi::Notification& notification = response.update();
        const bool isZoo = notification.prefix().elem_size() == 1;
        EXPECT_EQ(notification.atomic(), !isZoo);
        EXPECT_EQ(notification.prefix().origin(), "openconfig");
        EXPECT_EQ(notification.prefix().target(), "");
        EXPECT_GE(notification.timestamp(), clock.wallNanoseconds());
        for (const gnmi::Update& update : notification.update()) {
            EXPECT_TRUE(update.has_path());
            EXPECT_EQ(update.path().origin(), "");
            EXPECT_EQ(update.path().target(), "");
        }
    }
}

TEST_F(Subscribe, TargetIsEchoedInEveryPrefixOfThatCallOnly) {
    populate();
    const Rpc mine = subscribe("prefix { target: 'router-7' } subscription {}");
    const Rpc other = subscribe("subscription {}");
    view->beasts.erase(2);
    settle();
    for (const auto& [rpc, target] : {std::pair{mine, "router-7"}, std::pair{other, ""}}) {
        const auto responses = rpc.responses();
        EXPECT_EQ(responses.size(), 7U);
        for (const auto& response : responses) {
            if (!response.has_update()) { continue; }
            EXPECT_EQ(response.update().prefix().target(), target);
            EXPECT_EQ(response.update().prefix().origin(), "openconfig");
        }
    }
    EXPECT_EQ(brief(mine), brief(other)) << "the merged prefix keeps its elements";
}

TEST_F(Subscribe, EmptyOriginAndOpenconfigAreTheSame) {
    populate();
    const auto all = brief(subscribe("mode: ONCE subscription {}"));
    EXPECT_EQ(brief(subscribe("mode: ONCE prefix { origin: 'openconfig' } subscription {}")), all);
    EXPECT_EQ(brief(subscribe("mode: ONCE subscription { path { origin: 'openconfig' } }")), all);
}

TEST_F(Subscribe, UpdatesOnlyStartsWithTheSync) {
    populate();
    const Rpc rpc = subscribe("updates_only: true subscription {}");
    EXPECT_THAT(brief(rpc), ElementsAre("sync"));
    view->beasts.erase(2);
    view->beasts.set(3, "grey");
    settle();
    EXPECT_THAT(brief(rpc),
                ElementsAre("sync",
                            "/zoo[name=main]/beasts/beast[index=3]: index=3 state/index=3 "
                            "state/colour=grey",
                            "delete /zoo[name=main]/beasts/beast[index=2]"));
    const Rpc once = subscribe("mode: ONCE updates_only: true subscription {}");
    EXPECT_THAT(brief(once), ElementsAre("sync"));
    EXPECT_EQ(once.status(), "0");
}

TEST_F(Subscribe, AbsentEntryIsWatchedAndToldWhenItAppears) {
    const Rpc rpc = subscribe(
        "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
        "elem { name: 'beast' key { key: 'index' value: '1' } } } }");
    EXPECT_THAT(brief(rpc), ElementsAre("sync"));
    populate();
    EXPECT_THAT(brief(rpc), ElementsAre("sync", kRed));
}

TEST_F(Subscribe, NodesThatAreNeverThereGiveOnlyTheSync) {
    populate();
    for (const char* const path :
         {"elem { name: 'zoo' } elem { name: 'visitors' }",
          "elem { name: 'zoo' } elem { name: 'visitors' } elem { name: 'count' }",
          "elem { name: 'zoo' } elem { name: 'beasts' } elem { name: 'beast' } "
          "elem { name: 'state' } elem { name: 'weight' }"}) {
        const Rpc rpc = subscribe(std::string{"mode: ONCE subscription { path { "} + path + " } }");
        EXPECT_THAT(brief(rpc), ElementsAre("sync")) << path;
        EXPECT_EQ(rpc.status(), "0") << path;
    }
}

TEST_F(Subscribe, ModelsThatAreNotServedHideEverything) {
    populate();
    EXPECT_THAT(brief(subscribe("mode: ONCE use_models { name: 'farm' } subscription {}")),
                ElementsAre("sync"));
    EXPECT_EQ(brief(subscribe("mode: ONCE use_models { name: 'zoo' } subscription {}")).size(), 6U);
    EXPECT_EQ(brief(subscribe("mode: ONCE use_models { name: 'zoo' version: '9' } subscription {}"))
                  .size(),
              1U);
}

TEST_F(Subscribe, PartOfAnAtomicEntryKeepsPrefixAndMark) {
    populate();
    const Rpc rpc = subscribe(
        "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } elem { name: 'beast' } "
        "elem { name: 'state' } elem { name: 'colour' } } }");
    EXPECT_THAT(brief(rpc),
                ElementsAre("/zoo[name=main]/beasts/beast[index=1]: state/colour=red",
                            "/zoo[name=main]/beasts/beast[index=2]: state/colour=blue",
                            "sync"));
    EXPECT_TRUE(rpc.responses()[0].update().atomic());
    rpc.reply().data.clear();
    // The last leaf asked for goes: for this subscriber the entry goes.
    view->beasts.set(1, "");
    view->beasts.erase(2);
    settle();
    EXPECT_THAT(brief(rpc),
                ElementsAre("delete /zoo[name=main]/beasts/beast[index=1]",
                            "delete /zoo[name=main]/beasts/beast[index=2]"));
}

TEST_F(Subscribe, KeysInsideAnEntryAreFollowed) {
    populate();
    view->herds.set(8, {{1, 2}});
    settle();
    const Rpc rpc = subscribe(
        "mode: ONCE subscription { path { elem { name: 'zoo' } elem { name: 'herds' } "
        "elem { name: 'herd' } elem { name: 'members' } "
        "elem { name: 'member' key { key: 'index' value: '2' } } } }");
    EXPECT_THAT(
        brief(rpc),
        ElementsAre("/zoo[name=main]/herds/herd[id=8]: members/member[index=2]/index=2", "sync"));
}

TEST_F(Subscribe, ManyMessagesComeWholeAndInOrder) {
    for (std::uint64_t i = 1; i <= 5000; ++i) { view->beasts.set(i, std::string(i % 300, 'x')); }
    settle();
    const Rpc rpc = subscribe("mode: ONCE subscription {}");
    for (int i = 0; i < 200 && rpc.status().empty(); ++i) {
        rpc.client->window(rpc.stream, 1 << 20);
        settle();
    }
    ASSERT_EQ(rpc.status(), "0");
    const auto responses = rpc.responses();
    ASSERT_EQ(responses.size(), 5002U);
    for (std::uint64_t i = 1; i <= 5000; ++i) {
        EXPECT_EQ(responses[i - 1].update().update(0).val().uint_val(), i);
    }
}

TEST_F(Subscribe, AFilterThatHidesMuchStillComesToItsEnd) {
    for (std::uint64_t i = 1; i <= 20'000; ++i) { view->beasts.set(i, "x"); }
    settle();
    const Rpc rpc = subscribe(
        "mode: ONCE subscription { path { elem { name: 'zoo' } "
        "elem { name: 'beasts' } elem { name: 'beast' key { key: 'index' "
        "value: '19999' } } } }");
    settle();
    EXPECT_EQ(brief(rpc).size(), 2U);
    EXPECT_EQ(rpc.status(), "0");
}

TEST_F(Subscribe, StatusTellsWhoIsThereAndHowFarBehind) {
    populate();
    subscribe("prefix { target: 'r' } subscription {}");
    const auto all = service->subscribers().status();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_TRUE(all[0].peer.starts_with("127.0.0.1:")) << all[0].peer;
    EXPECT_EQ(all[0].target, "r");
    EXPECT_EQ(all[0].messages, 5U);
    EXPECT_EQ(all[0].lag, 0U);
    EXPECT_TRUE(all[0].synced);
    EXPECT_EQ(all[0].mode, "STREAM");
    EXPECT_EQ(all[0].paths, 1U);
    EXPECT_EQ(all[0].age, Kiln::Duration::zero());
    EXPECT_EQ(all[0].behind, std::nullopt);
    EXPECT_EQ(all[0].blocked, std::nullopt);
}

TEST_F(Subscribe, StatusTellsTheModeThePathsAndSinceWhen) {
    subscribe("mode: POLL subscription {" + path("zoo") + "} subscription {" + path("zoo/beasts") +
              "}");
    advance(std::chrono::seconds{5});
    subscribe("updates_only: true subscription {}");
    advance(std::chrono::seconds{7});
    const auto all = service->subscribers().status();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].mode, "POLL");
    EXPECT_EQ(all[0].paths, 2U);
    EXPECT_EQ(all[0].age, std::chrono::seconds{12});
    EXPECT_EQ(all[0].behind, std::nullopt) << "between two polls";
    EXPECT_EQ(all[1].mode, "updates only");
    EXPECT_EQ(all[1].age, std::chrono::seconds{7});
}

TEST_F(Subscribe, StatusTellsHowLongAClientIsBehindAndTakesNothing) {
    populate();
    const Rpc rpc = subscribeToAll(2000);
    const auto status = [this] { return service->subscribers().status().at(0); };
    ASSERT_TRUE(status().synced);
    ASSERT_EQ(status().lag, 0U);
    advance(std::chrono::seconds{9});
    EXPECT_EQ(status().behind, std::nullopt);
    // More than a call takes at a time.
    for (std::uint64_t i = 0; i < 500; ++i) { view->beasts.set(100 + i, "red"); }
    settle();
    advance(std::chrono::seconds{3});
    EXPECT_GT(status().lag, 0U);
    EXPECT_EQ(status().behind, std::chrono::seconds{3});
    EXPECT_EQ(status().blocked, std::chrono::seconds{3});
    rpc.client->window(rpc.stream, 1'000'000);
    settle();
    EXPECT_EQ(status().lag, 0U);
    EXPECT_EQ(status().behind, std::nullopt);
    EXPECT_EQ(status().blocked, std::nullopt);
}

TEST_F(Subscribe, RefusedAndTerminatedCallsAreCountedWithTheLastReason) {
    const Subscribers& calls = service->subscribers();
    subscribe("subscription {" + path("zoo/fish") + "}");
    advance(std::chrono::seconds{1});
    subscribe("mode: ONCE encoding: ASCII subscription {}");
    EXPECT_EQ(calls.refused.count, 2U);
    EXPECT_TRUE(calls.refused.peer.starts_with("127.0.0.1:")) << calls.refused.peer;
    EXPECT_EQ(calls.refused.at, clock.now());
    EXPECT_NE(calls.refused.reason, "");
    subscribe("subscription {}");
    clients.pop_back();  // a client that goes of itself is no failure
    settle();
    EXPECT_EQ(calls.terminated.count, 0U);
    populate();
    subscribeToAll(0);
    for (int second = 0; second < 70; ++second) { advance(std::chrono::seconds{1}); }
    EXPECT_EQ(calls.terminated.count, 1U);
    EXPECT_EQ(calls.terminated.reason, "the client takes no data");
    EXPECT_EQ(calls.refused.count, 2U);
}

struct PathCase {
    const char* name;
    const char* list;
    int beasts, herds, fields, zoos;  // how many entries of each come
};
constexpr PathCase kPaths[] = {
    {"Root", "subscription {}", 2, 1, 1, 1},
    {"Container",
     "subscription { path { elem { name: 'zoo' } elem { name: 'herds' } } }",
     0,
     1,
     0,
     0},
    {"ListWithoutKey",
     "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } elem { name: 'beast' } } "
     "}",
     2,
     0,
     0,
     0},
    {"WildcardKey",
     "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
     "elem { name: 'beast' key { key: 'index' value: '*' } } } }",
     2,
     0,
     0,
     0},
    {"OneKey",
     "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
     "elem { name: 'beast' key { key: 'index' value: '2' } } } }",
     1,
     0,
     0,
     0},
    {"KeyOfNoEntry",
     "subscription { path { elem { name: 'zoo' } elem { name: 'beasts' } "
     "elem { name: 'beast' key { key: 'index' value: 'x' } } } }",
     0,
     0,
     0,
     0},
    {"OuterKeyOfNoEntry",
     "subscription { path { elem { name: 'zoo' key { key: 'name' value: 'q' } } } }",
     0,
     0,
     0,
     0},
    {"AllInThePrefix",
     "prefix { elem { name: 'zoo' } elem { name: 'herds' } } subscription {}",
     0,
     1,
     0,
     0},
    {"SplitBetweenPrefixAndPath",
     "prefix { elem { name: 'zoo' } } subscription { path { elem { name: 'herds' } } }",
     0,
     1,
     0,
     0},
    {"OneLevelWildcard",
     "subscription { path { elem { name: 'zoo' } elem { name: '*' } elem { name: 'herd' } } }",
     0,
     1,
     0,
     0},
    {"WildcardForAllContainers",
     "subscription { path { elem { name: 'zoo' } elem { name: '*' } } }",
     2,
     1,
     1,
     1},
    {"AnyDepthAtTheEnd",
     "subscription { path { elem { name: 'zoo' } elem { name: '...' } } }",
     2,
     1,
     1,
     1},
    {"AnyDepthInTheMiddle",
     "subscription { path { elem { name: '...' } elem { name: 'herd' key { key: 'id' value: '7' } "
     "} } }",
     0,
     1,
     0,
     0},
    {"AnyDepthOfNothing",
     "subscription { path { elem { name: 'zoo' } elem { name: '...' } elem { name: 'beasts' } } }",
     2,
     0,
     0,
     0},
    {"LeavesAtAnyDepth",
     "subscription { path { elem { name: '...' } elem { name: 'state' } elem { name: 'herd' } } }",
     0,
     0,
     1,
     0},
    {"NonAtomicLeaf",
     "subscription { path { elem { name: 'zoo' } elem { name: 'name' } } }",
     0,
     0,
     0,
     1},
    {"Overlapping",
     "subscription { path { elem { name: 'zoo' } elem { name: 'herds' } } } subscription { path { "
     "elem { name: 'zoo' } elem { name: 'herds' } elem { name: 'herd' } } }",
     0,
     1,
     0,
     0},
    {"Several",
     "subscription { path { elem { name: 'zoo' } elem { name: 'herds' } } } subscription { path { "
     "elem { name: 'zoo' } elem { name: 'fields' } } }",
     0,
     1,
     1,
     0},
};

class Paths : public Subscribe, public testing::WithParamInterface<PathCase> {};
TEST_P(Paths, Select) {
    populate();
    const Rpc rpc = subscribe(std::string{"mode: ONCE "} + GetParam().list);
    ASSERT_EQ(rpc.status(), "0") << rpc.text();
    int beasts = 0, herds = 0, fields = 0, zoos = 0;
    for (const std::string& line : brief(rpc)) {
        beasts += line.starts_with("/zoo[name=main]/beasts/") ? 1 : 0;
        herds += line.starts_with("/zoo[name=main]/herds/") ? 1 : 0;
        fields += line.starts_with("/zoo[name=main]/fields/") ? 1 : 0;
        zoos += line.starts_with("/zoo[name=main]:") ? 1 : 0;
    }
    EXPECT_EQ(beasts, GetParam().beasts);
    EXPECT_EQ(herds, GetParam().herds);
    EXPECT_EQ(fields, GetParam().fields);
    EXPECT_EQ(zoos, GetParam().zoos);
    EXPECT_EQ(brief(rpc).back(), "sync");
}
INSTANTIATE_TEST_SUITE_P(, Paths, testing::ValuesIn(kPaths), [](const auto& row) {
    return std::string{row.param.name};
});

}  // namespace
}  // namespace Gale
