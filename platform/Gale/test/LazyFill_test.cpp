#include "platform/Gale/LazyFill.h"

#include "platform/Gale/test/ServiceFixture.h"

#include <gmock/gmock.h>

#include <numeric>

namespace Gale {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// One element a slice, and between two slices whatever the test wants: the I/O thread's turns.
class BetweenSlices final : public Kiln::YieldPolicy {
public:
    explicit BetweenSlices(std::function<void()> turn) : turn_(std::move(turn)) {}
    void sliceBegun(const Kiln::Clock& /*clock*/) override { turn_(); }
    bool sliceOver(const Kiln::Clock& /*clock*/) override { return true; }
    bool yieldsToUrgent() const override { return true; }

private:
    const std::function<void()> turn_;
};

/// The service over a view whose entries are made on demand.
class LazyFillTest : public ServiceFixture {
protected:
    static constexpr std::size_t kMany = 40;  // entries, with herd and zoo

    LazyFillTest() : ServiceFixture(true) {
        for (std::uint64_t i = 1; i <= kMany - 2; ++i) { view->beasts.set(i, "grey"); }
        view->herds.set(1, {{1, 2}});
        settle();
    }

    std::size_t held() {
        const auto statistics = channel().journal.statistics();
        const auto all = [](const auto& lanes) {
            return std::accumulate(lanes.begin(), lanes.end(), std::size_t{0});
        };
        return all(statistics.entries) + all(statistics.changes) + all(statistics.tombstones) +
               statistics.overtaken;
    }
    LazyFill::State state() { return channel().lazyFill->state(); }
    std::string subscription(const std::string& mode) {
        return bytes<gnmi::SubscribeRequest>("subscribe { mode: " + mode +
                                             " subscription {} encoding: PROTO }");
    }
    /// A call of a client of its own, without a turn of the scheduler.
    Rpc open(const std::string& mode) {
        clients.push_back(std::make_unique<Wire::WireClient>(
            server->port(), true, std::vector<Wire::WireClient::Setting>{}));
        auto& client = *clients.back();
        const auto stream = client.open(Wire::WireClient::head("/gnmi.gNMI/Subscribe"));
        client.send(stream, subscription(mode), false);
        turnOfWire();
        return {&client, stream};
    }
    void turnOfWire() {
        for (int i = 0; i < 10; ++i) {
            server->runOnce();
            for (auto& client : clients) { client->pump(); }
        }
    }
    void betweenSlices(std::function<void()> turn) {
        scheduler->yieldPolicyIs(std::make_unique<BetweenSlices>(std::move(turn)));
    }
    static void expectAllThenSync(const Rpc& rpc) {
        const auto all = brief(rpc);
        ASSERT_EQ(all.size(), kMany + 1);
        EXPECT_EQ(all.back(), "sync");
    }
};

TEST_F(LazyFillTest, NothingIsHeldWhileNobodyReads) {
    view->beasts.set(1, "green");
    advance(std::chrono::hours(1));
    EXPECT_EQ(state(), LazyFill::State::empty);
    EXPECT_EQ(held(), 0U);
    EXPECT_FALSE(channel().provider);
}

TEST_F(LazyFillTest, TheFirstSubscriberGetsAllBeforeItsSyncThoughTheFillTakesManySlices) {
    std::size_t slices = 0;
    std::optional<Rpc> second;
    betweenSlices([&] {
        ++slices;
        turnOfWire();
        if (!second && state() == LazyFill::State::filling && held() == kMany / 2) {
            second = open("STREAM");
        }
        if (second && state() == LazyFill::State::filling) {
            EXPECT_THAT(second->responses(), IsEmpty());
        }
    });
    const Rpc rpc = subscribe("mode: STREAM subscription {}");
    expectAllThenSync(rpc);
    EXPECT_GE(slices, kMany);
    ASSERT_TRUE(second);
    expectAllThenSync(*second);
    EXPECT_EQ(state(), LazyFill::State::filled);
}

TEST_F(LazyFillTest, ChangesAfterTheSyncAreToldOnce) {
    const Rpc rpc = subscribe("mode: STREAM subscription {}");
    view->beasts.set(7, "green");
    settle();
    const auto all = brief(rpc);
    ASSERT_EQ(all.size(), kMany + 2);
    EXPECT_EQ(all.back(),
              "/zoo[name=main]/beasts/beast[index=7]: index=7 state/index=7 state/colour=green");
}

TEST_F(LazyFillTest, AnEntryThatIsHeldBackBelongsToTheInitialSet) {
    view->herds.set(2, {{kMany}});
    const Rpc rpc = subscribe("mode: STREAM subscription {}");
    EXPECT_THAT(rpc.responses(), IsEmpty());
    view->beasts.set(kMany, "red");
    settle();
    const auto all = brief(rpc);
    ASSERT_EQ(all.size(), kMany + 3);
    EXPECT_EQ(all.back(), "sync");
}

TEST_F(LazyFillTest, WhatNeverComesHoldsTheSyncUpForThePatienceOnly) {
    view->herds.set(2, {{kMany}});
    const Rpc rpc = subscribe("mode: ONCE subscription {}");
    advance(std::chrono::seconds(29));
    EXPECT_THAT(rpc.responses(), IsEmpty());
    advance(std::chrono::seconds(1));
    EXPECT_EQ(rpc.responses().size(), kMany + 2);
    EXPECT_EQ(rpc.status(), "0");
}

TEST_F(LazyFillTest, TheLastOneLeavingFreesAllAfterTheLinger) {
    const Rpc stream = subscribe("mode: STREAM subscription {}");
    subscribe("mode: ONCE subscription {}");
    advance(std::chrono::seconds(120));
    EXPECT_EQ(state(), LazyFill::State::filled) << "somebody reads";
    stream.client->reset(stream.stream);
    settle();
    advance(std::chrono::seconds(59));
    EXPECT_EQ(channel().journal.statistics().cursors, 0U);
    EXPECT_GE(held(), kMany);
    advance(std::chrono::seconds(1));
    EXPECT_EQ(state(), LazyFill::State::empty);
    EXPECT_EQ(held(), 0U);
    EXPECT_FALSE(channel().provider);
}

TEST_F(LazyFillTest, WhoComesAgainWithinTheLingerCausesNothingAnew) {
    subscribe("mode: ONCE subscription {}");
    const auto encoded = channel().provider->statistics().encoded;
    for (int i = 0; i < 3; ++i) {
        advance(std::chrono::seconds(59));
        expectAllThenSync(subscribe("mode: ONCE subscription {}"));
    }
    EXPECT_EQ(channel().provider->statistics().encoded, encoded);
    view->beasts.set(1, "green");
    settle();
    EXPECT_EQ(channel().provider->statistics().encoded, encoded + 1) << "kept up meanwhile";
    advance(std::chrono::seconds(60));
    EXPECT_EQ(held(), 0U);
}

TEST_F(LazyFillTest, EntriesAreFreedInSlices) {
    subscribe("mode: ONCE subscription {}");
    std::size_t before = held();
    std::size_t slices = 0;
    betweenSlices([&] {
        if (state() != LazyFill::State::erasing) { return; }
        ++slices;
        EXPECT_LE(before - held(), 1U);
        before = held();
    });
    advance(std::chrono::seconds(60));
    EXPECT_EQ(held(), 0U);
    EXPECT_GE(slices, kMany);
}

TEST_F(LazyFillTest, WhoComesWhileEntriesAreFreedGetsThemAll) {
    subscribe("mode: ONCE subscription {}");
    std::optional<Rpc> rpc;
    betweenSlices([&] {
        turnOfWire();
        if (!rpc && state() == LazyFill::State::erasing && held() == kMany / 2) {
            view->beasts.erase(kMany - 2);  // the last one: its entry is still held
            view->beasts.set(kMany, "new");
            rpc = open("STREAM");
        }
        if (rpc && state() == LazyFill::State::erasing) {
            EXPECT_THAT(rpc->responses(), IsEmpty());
        }
    });
    advance(std::chrono::seconds(60));
    ASSERT_TRUE(rpc);
    expectAllThenSync(*rpc);
    EXPECT_THAT(brief(*rpc), testing::Not(testing::Contains(testing::HasSubstr("index=38]:"))));
}

TEST_F(LazyFillTest, LeavingWhileItFillsLeavesNothingBehind) {
    std::optional<Rpc> rpc;
    bool left = false;
    betweenSlices([&] {
        turnOfWire();
        if (!left && rpc && state() == LazyFill::State::filling && held() == kMany / 2) {
            rpc->client->reset(rpc->stream);
            left = true;
            turnOfWire();
        }
    });
    rpc = open("STREAM");
    settle();
    EXPECT_TRUE(left);
    EXPECT_EQ(service->subscribers().size(), 0U);
    EXPECT_FALSE(channel().lazyFill->wanted());
    EXPECT_EQ(channel().journal.statistics().cursors, 0U);
    advance(std::chrono::seconds(60));
    EXPECT_EQ(held(), 0U);
    expectAllThenSync(subscribe("mode: ONCE subscription {}"));
}

TEST_F(LazyFillTest, LeavingAndComingAgainWhileItFills) {
    std::optional<Rpc> first;
    std::optional<Rpc> second;
    betweenSlices([&] {
        turnOfWire();
        if (!second && first && state() == LazyFill::State::filling && held() == kMany / 2) {
            first->client->reset(first->stream);
            turnOfWire();
            second = open("ONCE");
        }
    });
    first = open("STREAM");
    settle();
    ASSERT_TRUE(second);
    expectAllThenSync(*second);
    EXPECT_EQ(second->status(), "0");
}

TEST_F(LazyFillTest, ServerThatStopsEndsWhoWaits) {
    const Rpc rpc = open("STREAM");  // the scheduler has no turn
    EXPECT_EQ(service->subscribers().size(), 1U);
    EXPECT_EQ(service->subscribers().status()[0].messages, 0U);
    server->beginStop(std::chrono::seconds(0));
    turnOfWire();
    EXPECT_EQ(rpc.status(), "14");
    EXPECT_EQ(service->subscribers().size(), 0U);
    settle();
    advance(std::chrono::seconds(60));
    EXPECT_EQ(held(), 0U);
}

TEST_F(LazyFillTest, AnAnswerThatComesAfterTheServersEndIsLost) {
    open("STREAM");
    clients.clear();
    server.reset();
    channel().lazyFill.reset();
    scheduler->runUntilIdle();
    EXPECT_EQ(held(), 0U);
}

}  // namespace
}  // namespace Gale
