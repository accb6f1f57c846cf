#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>

namespace Gale {
namespace {

using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kSecond = "1000000000";

std::string visits(int index, int count) {
    const std::string number = std::to_string(index);
    return "/zoo[name=main]/counters/visits[index=" + number + "]: index=" + number +
           " state/count=" + std::to_string(count);
}
std::string beast(int index, const char* colour) {
    const std::string number = std::to_string(index);
    return "/zoo[name=main]/beasts/beast[index=" + number + "]: index=" + number +
           " state/index=" + number + " state/colour=" + colour;
}

/// Two beasts that are visited.
class Sample : public ServiceFixture {
protected:
    Sample() {
        view->beasts.set(1, "red");
        view->beasts.set(2, "blue");
        view->visits.set(1, 10);
        view->visits.set(2, 20);
        settle();
    }
    /// A subscription to the visits; `fields` of it besides.
    Rpc sample(const std::string& fields, const std::string& list = "") {
        return subscribe(list + " subscription {" + path("zoo/counters") + fields + "}");
    }
    static std::string seconds10() { return " mode: SAMPLE sample_interval: 10000000000 "; }
    /// What came since.
    std::vector<std::string> news(const Rpc& rpc) {
        auto all = brief(rpc);
        rpc.reply().data.clear();
        return all;
    }
    /// The stamps of the notifications that came since, by entry.
    std::vector<std::int64_t> stamps(const Rpc& rpc) {
        std::vector<std::int64_t> all;
        for (const auto& response : rpc.responses()) {
            if (response.has_update()) { all.push_back(response.update().timestamp()); }
        }
        return all;
    }
    std::uint64_t skipped() { return service->subscribers().status().at(0).skipped; }
};

TEST_F(Sample, GivesTheStateOneSyncAndThenEveryValueOnceAnInterval) {
    const Rpc rpc = sample(seconds10());
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 10), visits(2, 20), "sync"));
    view->visits.set(1, 11);
    advance(seconds{9});
    EXPECT_THAT(news(rpc), IsEmpty());
    view->visits.set(1, 12);
    advance(seconds{1});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 12), visits(2, 20)));
    for (int i = 0; i < 3; ++i) {
        advance(seconds{10});
        EXPECT_THAT(news(rpc), ElementsAre(visits(1, 12), visits(2, 20)));
    }
    EXPECT_EQ(rpc.status(), "");
    EXPECT_EQ(skipped(), 0U);
}

TEST_F(Sample, EachValueIsStampedWithTheTimeOfTheSample) {
    const Rpc rpc = sample(seconds10());
    std::vector<std::int64_t> before = stamps(rpc);
    for (int i = 0; i < 3; ++i) {
        rpc.reply().data.clear();
        advance(seconds{10});
        const auto now = stamps(rpc);
        ASSERT_EQ(now.size(), 2U);
        EXPECT_GT(*std::min_element(now.begin(), now.end()),
                  *std::max_element(before.begin(), before.end()));
        EXPECT_GE(now[0], clock.wallNanoseconds());
        before = now;
    }
    // What goes then is stamped later still, or a collector would keep it.
    view->visits.erase(1);
    rpc.reply().data.clear();
    settle();
    EXPECT_THAT(brief(rpc), ElementsAre("delete /zoo[name=main]/counters/visits[index=1]"));
    EXPECT_GT(stamps(rpc).at(0), before[0]);
}

TEST_F(Sample, WhatComesAndGoesIsToldAtOnce) {
    const Rpc rpc = subscribe("subscription {" + path("zoo/beasts") + "mode: ON_CHANGE } " +
                              "subscription {" + path("zoo/counters") + seconds10() + "}");
    news(rpc);
    view->visits.set(3, 30);
    view->beasts.set(3, "grey");
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(beast(3, "grey"), visits(3, 30)));
    view->beasts.erase(2);
    view->visits.erase(2);
    settle();
    EXPECT_THAT(news(rpc),
                ElementsAre("delete /zoo[name=main]/counters/visits[index=2]",
                            "delete /zoo[name=main]/beasts/beast[index=2]"));
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 10), visits(3, 30)));
}

TEST_F(Sample, AnEntryThatGoesAndComesBackBetweenTwoSamplesIsToldAnew) {
    const Rpc rpc = sample(seconds10());
    news(rpc);
    view->visits.erase(1);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre("delete /zoo[name=main]/counters/visits[index=1]"));
    view->visits.set(1, 5);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 5)));
}

TEST_F(Sample, ANewReferenceIsToldAtOnceThatNoneDangles) {
    view->herds.set(7, {{1}});
    view->herds.set(8, {{1}});
    settle();
    const Rpc rpc = subscribe("subscription {" + path("zoo") + seconds10() + "}");
    news(rpc);
    view->herds.set(7, {{2}});
    view->beasts.set(2, "green");
    view->beasts.erase(1);
    view->visits.erase(1);
    view->herds.set(8, {{2}});
    settle();
    EXPECT_THAT(
        news(rpc),
        ElementsAre("/zoo[name=main]/herds/herd[id=7]: id=7 members/member[index=2]/index=2",
                    "/zoo[name=main]/herds/herd[id=8]: id=8 members/member[index=2]/index=2",
                    "delete /zoo[name=main]/counters/visits[index=1]",
                    "delete /zoo[name=main]/beasts/beast[index=1]"))
        << "the new colour waits for the sample";
    advance(seconds{10});
    EXPECT_THAT(news(rpc), testing::Contains(beast(2, "green")));
}

TEST_F(Sample, IntervalZeroIsTheShortest) {
    const Rpc rpc = sample("mode: SAMPLE");
    news(rpc);
    advance(std::chrono::milliseconds{999});
    EXPECT_THAT(news(rpc), IsEmpty());
    advance(std::chrono::milliseconds{1});
    EXPECT_EQ(news(rpc).size(), 2U);
}

TEST_F(Sample, AnIntervalOfCenturiesNeverEnds) {
    const Rpc rpc = sample("mode: SAMPLE sample_interval: 18446744073709551615");
    news(rpc);
    advance(std::chrono::hours{24});
    EXPECT_THAT(news(rpc), IsEmpty());
    EXPECT_EQ(rpc.status(), "");
}

TEST_F(Sample, SuppressRedundantLeavesOutWhatHasNotChanged) {
    const Rpc rpc = sample(seconds10() + "suppress_redundant: true");
    news(rpc);
    advance(seconds{10});
    EXPECT_THAT(news(rpc), IsEmpty());
    view->visits.set(2, 21);
    view->visits.set(2, 22);
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(2, 22)));
    advance(seconds{10});
    EXPECT_THAT(news(rpc), IsEmpty());
    // An entry that came was told then.
    view->visits.set(1, 11);
    view->beasts.set(3, "grey");
    view->visits.set(3, 30);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(visits(3, 30)));
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 11)));
}

TEST_F(Sample, SuppressRedundantWithAHeartbeatTellsAllOfItOnceAHeartbeat) {
    const Rpc rpc =
        sample(seconds10() + "suppress_redundant: true heartbeat_interval: 30000000000");
    news(rpc);
    for (int i = 0; i < 2; ++i) {
        advance(seconds{10});
        EXPECT_THAT(news(rpc), IsEmpty());
    }
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 10), visits(2, 20)));
}

TEST_F(Sample, AHeartbeatShorterThanTheIntervalMakesEverySampleWhole) {
    const Rpc rpc = sample(seconds10() + "suppress_redundant: true heartbeat_interval: " + kSecond);
    news(rpc);
    advance(seconds{9});
    EXPECT_THAT(news(rpc), IsEmpty());
    advance(seconds{1});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 10), visits(2, 20)));
}

TEST_F(Sample, WithoutSuppressRedundantAHeartbeatMeansNothing) {
    const Rpc rpc = sample(seconds10() + "heartbeat_interval: 1");
    news(rpc);
    advance(seconds{10});
    EXPECT_EQ(news(rpc).size(), 2U);
}

TEST_F(Sample, UpdatesOnlyBeginsWithTheSyncAndGivesTheNextSample) {
    const Rpc rpc = sample(seconds10(), "updates_only: true");
    EXPECT_THAT(news(rpc), ElementsAre("sync"));
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 10), visits(2, 20)));
}

TEST_F(Sample, UpdatesOnlyThatSuppressesGivesChangesAlone) {
    const Rpc rpc = sample(seconds10() + "suppress_redundant: true", "updates_only: true");
    EXPECT_THAT(news(rpc), ElementsAre("sync"));
    view->visits.set(2, 21);
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(2, 21)));
}

TEST_F(Sample, OneListMayMixModesAndHasOneSync) {
    view->herds.set(7, {{1}});
    settle();
    const Rpc rpc =
        subscribe("subscription {" + path("zoo/beasts") + "mode: ON_CHANGE } " + "subscription {" +
                  path("zoo/herds") + "mode: SAMPLE sample_interval: 4000000000 } " +
                  "subscription {" + path("zoo/counters") + seconds10() + "}");
    const auto initial = news(rpc);
    EXPECT_EQ(std::count(initial.begin(), initial.end(), "sync"), 1);
    EXPECT_EQ(initial.size(), 6U);
    view->beasts.set(1, "green");
    view->visits.set(1, 11);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(beast(1, "green")));
    const std::string herd =
        "/zoo[name=main]/herds/herd[id=7]: id=7 members/member[index=1]/index=1";
    advance(seconds{4});
    EXPECT_THAT(news(rpc), ElementsAre(herd));
    advance(seconds{4});
    EXPECT_THAT(news(rpc), ElementsAre(herd));
    advance(seconds{2});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 11), visits(2, 20)));
}

TEST_F(Sample, WhatOneWantsOnChangeIsToldOnChangeWhateverAnotherWants) {
    const Rpc rpc =
        subscribe("subscription {" + path("zoo/counters/visits[index=1]") +
                  "mode: ON_CHANGE } subscription {" + path("zoo/counters") + seconds10() + "}");
    news(rpc);
    view->visits.set(1, 11);
    view->visits.set(2, 21);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 11)));
    advance(seconds{10});
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 11), visits(2, 21)));
}

TEST_F(Sample, TargetDefinedIsCountersNowAndThenAndAllElseOnChange) {
    const Rpc rpc = subscribe("subscription {" + path("zoo") + "}");
    news(rpc);
    view->beasts.set(1, "green");
    view->visits.set(1, 11);
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(beast(1, "green")));
    advance(limits.countersInterval);
    EXPECT_THAT(news(rpc), ElementsAre(visits(1, 11)));
    advance(limits.countersInterval);
    EXPECT_THAT(news(rpc), IsEmpty());
}

TEST_F(Sample, OnChangeWithAHeartbeatTellsAllOnceAHeartbeatWithANewStampAndNoSync) {
    const Rpc rpc = subscribe("subscription {" + path("zoo/beasts") +
                              "mode: ON_CHANGE heartbeat_interval: 30000000000 }");
    const auto before = stamps(rpc);
    news(rpc);
    advance(seconds{20});
    view->beasts.set(1, "green");
    settle();
    EXPECT_THAT(news(rpc), ElementsAre(beast(1, "green"))) << "at once";
    advance(seconds{10});
    const auto now = stamps(rpc);
    EXPECT_THAT(news(rpc), ElementsAre(beast(1, "green"), beast(2, "blue")));
    ASSERT_EQ(now.size(), 2U);
    EXPECT_GT(now[1], before[1]);
    advance(seconds{30});
    EXPECT_EQ(news(rpc).size(), 2U);
}

TEST_F(Sample, TargetDefinedTakesAHeartbeat) {
    const Rpc rpc = subscribe("subscription {" + path("zoo") + "heartbeat_interval: 30000000000 }");
    const auto initial = news(rpc);
    advance(seconds{30});
    EXPECT_EQ(news(rpc).size(), initial.size() - 1);
}

TEST_F(Sample, LeavesAndWildcardsAreSampledToo) {
    const Rpc rpc = subscribe("subscription {" + path("zoo/counters/visits[index=*]/state/count") +
                              seconds10() + "}");
    news(rpc);
    view->visits.set(1, 11);
    advance(seconds{10});
    EXPECT_THAT(news(rpc),
                ElementsAre("/zoo[name=main]/counters/visits[index=1]: state/count=11",
                            "/zoo[name=main]/counters/visits[index=2]: state/count=20"));
}

TEST_F(Sample, JsonAndTheTargetComeWithANewStampToo) {
    const Rpc rpc = sample(seconds10(), "encoding: JSON_IETF prefix { target: 'router-7' }");
    news(rpc);
    advance(seconds{10});
    const auto responses = rpc.responses();
    ASSERT_EQ(responses.size(), 2U);
    EXPECT_GE(responses[0].update().timestamp(), clock.wallNanoseconds());
    EXPECT_EQ(responses[0].update().prefix().target(), "router-7");
    EXPECT_EQ(brief(responses[0]),
              "/zoo[name=main]/counters/visits[index=1]: index=ietf \"1\" state/count=ietf \"10\"");
}

TEST_F(Sample, EntriesThatAreEncodedWhenTheyAreSentComeWithANewStampToo) {
    view->herds.set(7, {{1}});
    view->fields.set(5, 7);
    settle();
    const Rpc rpc = subscribe("subscription {" + path("zoo/fields") + seconds10() + "}");
    const auto before = stamps(rpc);
    news(rpc);
    advance(seconds{10});
    EXPECT_GT(stamps(rpc).at(0), before.at(0));
    EXPECT_THAT(news(rpc), ElementsAre("/zoo[name=main]/fields/field[id=5]: id=5 state/herd=7"));
}

TEST_F(Sample, AStreamWithNothingToSendIsNotTakenForAStuckClient) {
    const Rpc rpc = sample("mode: SAMPLE sample_interval: 300000000000");
    news(rpc);
    for (int i = 0; i < 299; ++i) { advance(seconds{1}); }
    EXPECT_EQ(rpc.status(), "");
    EXPECT_THAT(news(rpc), IsEmpty());
    advance(seconds{1});
    EXPECT_EQ(news(rpc).size(), 2U);
    // Nothing changes, so there is nothing to send even when a sample is due.
    const Rpc quiet = sample(seconds10() + "suppress_redundant: true");
    for (int i = 0; i < 180; ++i) { advance(seconds{1}); }
    EXPECT_EQ(quiet.status(), "");
}

TEST_F(Sample, ManyEntriesComeWholeWhileOthersChange) {
    for (std::uint64_t i = 1; i <= 3000; ++i) {
        view->beasts.set(i, "x");
        view->visits.set(i, i);
    }
    settle();
    const Rpc rpc = sample(seconds10());
    rpc.client->window(rpc.stream, 1 << 24);
    settle();
    rpc.reply().data.clear();
    clock.advance(seconds{10});
    for (std::uint64_t turn = 0; turn < 60; ++turn) {
        view->visits.set(1 + turn * 50, 100'000 + turn);
        scheduler->runUntilIdle();
        server->runOnce();
        for (auto& client : clients) { client->pump(); }
    }
    settle();
    std::map<std::uint64_t, int> times;
    for (const auto& response : rpc.responses()) {
        ++times[response.update().update(0).val().uint_val()];
    }
    EXPECT_EQ(times.size(), 3000U);
    EXPECT_TRUE(std::all_of(times.begin(), times.end(), [](auto& each) {
        return each.second == 1;
    })) << "each once";
}

/// A client whose window takes the initial set of a hundred entries and a part of a sample.
class SlowSample : public Sample {
protected:
    SlowSample() {
        for (std::uint64_t i = 1; i <= 100; ++i) {
            view->beasts.set(i, "x");
            view->visits.set(i, 1);
        }
        settle();
        constexpr std::uint16_t kInitialWindow = 4;
        clients.push_back(std::make_unique<Wire::WireClient>(
            server->port(),
            true,
            std::vector<Wire::WireClient::Setting>{{kInitialWindow, 20'000}}));
        rpc.client = clients.back().get();
        rpc.stream = rpc.client->open(Wire::WireClient::head("/gnmi.gNMI/Subscribe"));
        rpc.client->send(rpc.stream,
                         bytes<gnmi::SubscribeRequest>(
                             "subscribe { encoding: PROTO subscription {" + path("zoo/counters") +
                             "mode: SAMPLE sample_interval: 10000000000 } }"),
                         false);
        settle();
        EXPECT_THAT(news(rpc), testing::Contains("sync"));
    }
    Rpc rpc;
};

TEST_F(SlowSample, ASampleThatIsNotFinishedWhenTheNextIsDueIsNotQueuedTwice) {
    for (int i = 0; i < 5; ++i) { advance(seconds{10}); }
    const auto taken = news(rpc).size();
    EXPECT_LT(taken, 200U) << "the window is closed";
    rpc.client->window(rpc.stream, 1 << 20);
    settle();
    const std::uint64_t after = skipped();
    EXPECT_GT(after, 0U);
    // What was left of the one under way, and one that is due.
    EXPECT_LE(taken + news(rpc).size(), 200U);
    advance(seconds{10});
    EXPECT_EQ(news(rpc).size(), 100U);
    EXPECT_EQ(skipped(), after);
}

TEST_F(SlowSample, AClientThatTakesNothingOfItsSamplesIsEndedAfterAMinute) {
    for (int i = 0; i < 100 && rpc.status().empty(); ++i) { advance(seconds{1}); }
    EXPECT_EQ(service->subscribers().size(), 0U);
    EXPECT_EQ(service->subscribers().terminated.reason, "the client takes no data");
}

TEST_F(SlowSample, DeletesDoNotWaitForTheEndOfASample) {
    rpc.client->window(rpc.stream, 1 << 20);
    clock.advance(seconds{10});
    view->visits.erase(100);  // the last one of the sample
    settle();
    const auto all = news(rpc);
    EXPECT_EQ(all.size(), 100U);
    EXPECT_EQ(std::count(all.begin(), all.end(), visits(100, 1)), 0);
    EXPECT_EQ(
        std::count(all.begin(), all.end(), "delete /zoo[name=main]/counters/visits[index=100]"), 1);
}

}  // namespace
}  // namespace Gale
