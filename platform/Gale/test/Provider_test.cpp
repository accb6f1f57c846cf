#include "platform/Gale/test/ServiceFixture.h"
#include "test/support/TempDir.h"

#include <gmock/gmock.h>

#include <fstream>

namespace Gale {
namespace {

using testing::ElementsAre;

class ProviderTest : public ServiceFixture, public testing::WithParamInterface<bool> {
protected:
    ProviderTest() {
        if (GetParam()) { scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>()); }
    }
    std::size_t shown(Lane lane) { return channel().journal.statistics().entries[index(lane)]; }
    ProviderStatistics statistics() { return channel().provider->statistics(); }
};

TEST_P(ProviderTest, AGroupWaitsForItsMember) {
    view->herds.set(7, {{1, 2}});
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(statistics().waiting, 1U);
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U) << "the other one is still missing";
    view->beasts.set(2, "blue");
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
    EXPECT_EQ(channel().journal.find(Lane::groups, {0, 0, 7})->references().size(), 2U);
}

TEST_P(ProviderTest, TellsHowManyEntriesOfEachKindAreShown) {
    const auto kinds = [this] { return statistics().shown; };
    EXPECT_EQ(kinds(), (std::vector<std::size_t>{0, 0, 0, 1, 0}));
    populate();
    EXPECT_EQ(kinds(), (std::vector<std::size_t>{2, 1, 1, 1, 0}));
    view->beasts.set(1, "green");  // one that is there
    view->fields.erase(5);
    view->herds.erase(7);
    settle();
    EXPECT_EQ(kinds(), (std::vector<std::size_t>{2, 0, 0, 1, 0}));
    view->beasts.clear();
    settle();
    EXPECT_EQ(kinds(), (std::vector<std::size_t>{0, 0, 0, 1, 0}));
}

TEST_P(ProviderTest, TellsWhoWaitsForWhatAndSinceWhen) {
    advance(std::chrono::seconds{1});
    view->fields.set(5, 7);
    view->fields.set(6, 7);
    settle();
    advance(std::chrono::seconds{2});
    view->herds.set(7, {{3}});
    settle();
    EXPECT_EQ(statistics().waiting, 3U);
    EXPECT_EQ(statistics().waitingForNextHop, 1U);
    EXPECT_EQ(statistics().waitingForGroup, 2U);
    const auto held = channel().provider->held(2);
    ASSERT_EQ(held.size(), 2U);
    EXPECT_EQ(held[0].waiter, (Reference{Lane::groups, {0, 0, 7}}));
    EXPECT_EQ(held[0].missing, (Reference{Lane::nextHops, {0, 0, 3}}));
    EXPECT_EQ(clock.now() - held[0].since, Kiln::Duration::zero());
    EXPECT_EQ(held[1].waiter, (Reference{Lane::prefixes, {0, 0, 5}}));
    EXPECT_EQ(held[1].missing, (Reference{Lane::groups, {0, 0, 7}}));
    EXPECT_EQ(clock.now() - held[1].since, std::chrono::seconds{2});
    view->beasts.set(3, "red");
    settle();
    EXPECT_EQ(statistics().waitingForNextHop, 0U);
    EXPECT_EQ(statistics().waitingForGroup, 0U);
    EXPECT_TRUE(channel().provider->held(2).empty());
}

TEST_P(ProviderTest, AMemberThatWasLookedAtAndIsNotThereHoldsNobody) {
    view->herds.set(7, {{1, 2}});
    view->beasts.set(2, "blue");
    settle();
    view->beasts.publish(1);  // processed, without an entry
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U);
    const auto references = channel().journal.find(Lane::groups, {0, 0, 7})->references();
    ASSERT_EQ(references.size(), 1U) << "only to what is there";
    EXPECT_EQ(references[0].key.lo, 2U);
    view->herds.set(8, {{1}});  // and it is remembered for those who come later
    settle();
    EXPECT_EQ(shown(Lane::groups), 2U);
    EXPECT_EQ(statistics().released, 0U);
}

TEST_P(ProviderTest, ALookFromBeforeAnEntryWasToldAgainIsNoAnswer) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    view->fields.set(5, 7);
    settle();
    view->fields.erase(5);
    view->herds.erase(7);
    view->beasts.erase(1);
    settle();
    ASSERT_EQ(statistics().removed, 3U);
    view->pendingBeasts = {1};
    view->pendingHerds = {7};
    view->fields.set(5, 7);
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 0U);
    view->pendingHerds = {};
    view->herds.set(7, {{1}});
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U) << "its member is still to be considered";
    view->pendingBeasts = {};
    view->beasts.set(1, "blue");
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEntryThatWaitsItselfMayComeThoughItWasLookedAtBefore) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    settle();
    view->herds.erase(7);
    view->beasts.erase(1);
    settle();
    ASSERT_EQ(statistics().removed, 2U);
    view->pendingBeasts = {1};
    view->herds.set(7, {{1}});
    view->fields.set(5, 7);
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 0U) << "the herd waits for its member";
    view->pendingBeasts = {};
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEntryThatIsLeavingIsNotNamedAnew) {
    view->herds.set(7, {});
    settle();
    view->herds.erase(7);
    view->pendingHerds = {7};
    view->fields.set(5, 7);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::prefixes), 0U);
    view->pendingHerds = {};
    view->herds.set(7, {});
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEntryThatComesBackBeforeItLeftWakesWhoSawItLeaving) {
    for (int comesBackAt = 1; comesBackAt <= 8; ++comesBackAt) {
        view->herds.set(7, {});
        view->herds.set(8, {});
        settle();
        view->herds.erase(7);
        view->herds.erase(8);
        view->fields.set(5, 8);
        int turns = 0;
        Kiln::Task comeBack{scheduler, "ComeBack", 3, [&] {
                                if (++turns < comesBackAt) { return true; }
                                view->herds.set(8, {});
                                return false;
                            }};
        comeBack.schedule();
        settle();
        EXPECT_EQ(shown(Lane::groups), 1U) << comesBackAt;
        EXPECT_EQ(shown(Lane::prefixes), 1U) << comesBackAt;
        EXPECT_EQ(statistics().waiting, 0U) << comesBackAt;
        view->fields.erase(5);
    }
}

TEST_P(ProviderTest, WhatTheContentOfAHeldBackEntryNamesStays) {
    view->herds.set(7, {});
    view->fields.set(5, 7);
    settle();
    view->fields.set(5, 8);
    view->herds.erase(7);
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U) << "the field still names it";
    EXPECT_EQ(channel().journal.find(Lane::prefixes, {0, 0, 5})->value(), 7U);
    view->herds.set(8, {});
    settle();
    EXPECT_EQ(channel().journal.find(Lane::groups, {0, 0, 7}), nullptr);
    EXPECT_EQ(channel().journal.find(Lane::prefixes, {0, 0, 5})->value(), 8U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEntryToldAgainAndTheLeavingOneThatItNamesDoNotWaitForEachOther) {
    view->herds.set(7, {});
    view->fields.set(5, 7);
    settle();
    view->herds.erase(7);
    view->fields.set(5, 7);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, WhatStayedForAHeldBackEntryLeavesWhenThatLeaves) {
    view->herds.set(7, {});
    view->fields.set(5, 7);
    view->fields.set(6, 7);
    settle();
    view->fields.set(5, 8);
    view->fields.set(6, 8);
    view->herds.erase(7);
    settle();
    view->fields.erase(5);
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U) << "the other field names it, too";
    view->fields.erase(6);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::prefixes), 0U);
}

TEST_P(ProviderTest, WhatStayedForAHeldBackEntryMayComeBack) {
    view->herds.set(7, {});
    view->fields.set(5, 7);
    settle();
    view->fields.set(5, 8);
    view->herds.erase(7);
    settle();
    view->herds.set(7, {});
    view->herds.set(8, {});
    settle();
    EXPECT_EQ(shown(Lane::groups), 2U);
    EXPECT_EQ(channel().journal.find(Lane::prefixes, {0, 0, 5})->value(), 8U);
}

TEST_P(ProviderTest, WhatStayedForAHeldBackEntryLeavesWhenPatienceEnds) {
    view->herds.set(7, {});
    view->fields.set(5, 7);
    settle();
    view->fields.set(5, 8);
    view->herds.erase(7);
    settle();
    advance(std::chrono::seconds(30));
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(channel().journal.find(Lane::prefixes, {0, 0, 5})->value(), 8U);
}

/// A group that was told to go and to come again may never be looked at between.
TEST_P(ProviderTest, WhatAShownEntryNamesStaysThoughNobodyWaits) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    settle();
    const auto before = statistics();
    view->beasts.erase(1);
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 1U) << "the herd names it";
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(statistics().removed, before.removed);
    EXPECT_EQ(statistics().changed, before.changed) << "nobody need know that it was gone";
}

TEST_P(ProviderTest, WhatStayedGoesWithTheLastWhoNamedIt) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    view->herds.set(8, {{1}});
    settle();
    view->beasts.erase(1);
    settle();
    view->herds.erase(7);
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 1U);
    view->herds.set(8, {});
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 0U);
    EXPECT_EQ(shown(Lane::groups), 1U);
}

TEST_P(ProviderTest, WhatStayedGoesWhenAllWhoNameItWereLookedAt) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    view->fields.set(5, 7);
    view->fields.set(6, 7);
    settle();
    view->herds.erase(7);
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U);
    view->fields.publish(5);
    settle();
    view->fields.publish(5);
    settle();
    EXPECT_EQ(shown(Lane::groups), 1U) << "one of two";
    view->fields.publish(6);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::prefixes), 2U) << "they say so still";
    view->fields.erase(5);
    view->herds.set(7, {{1}});
    settle();
    view->herds.erase(7);
    view->fields.publish(6);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U) << "who named it all along is counted again";
}

TEST_P(ProviderTest, WhatStaysGoesWhenPatienceEnds) {
    view->beasts.set(1, "red");
    view->beasts.set(2, "red");
    view->herds.set(7, {{1, 2}});
    settle();
    view->beasts.erase(1);
    settle();
    advance(std::chrono::seconds(29));
    view->beasts.erase(2);
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 2U);
    advance(std::chrono::seconds(1));
    EXPECT_EQ(shown(Lane::nextHops), 1U);
    advance(std::chrono::seconds(29));
    EXPECT_EQ(shown(Lane::nextHops), 0U);
    EXPECT_EQ(shown(Lane::groups), 1U);
}

TEST_P(ProviderTest, PatienceEnds) {
    view->herds.set(7, {{1}});
    view->fields.set(5, 7);
    settle();
    advance(std::chrono::seconds(29));
    EXPECT_EQ(statistics().waiting, 2U);
    EXPECT_EQ(shown(Lane::groups), 0U);
    advance(std::chrono::seconds(1));
    EXPECT_EQ(shown(Lane::groups), 1U);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(statistics().waiting, 0U);
    // What an entry waited for may come all the same.
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 1U);
}

TEST_P(ProviderTest, AShownEntryKeepsItsContentWhileTheNewOneWaits) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    settle();
    view->herds.set(7, {{2}});
    settle();
    const auto* content = channel().journal.find(Lane::groups, {0, 0, 7});
    ASSERT_NE(content, nullptr);
    EXPECT_EQ(content->references()[0].key.lo, 1U);
    view->beasts.set(2, "blue");
    settle();
    EXPECT_EQ(channel().journal.find(Lane::groups, {0, 0, 7})->references()[0].key.lo, 2U);
}

TEST_P(ProviderTest, AnEntryDeletedWhileItWaitsIsForgotten) {
    view->herds.set(7, {{1}});
    settle();
    view->herds.erase(7);
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(statistics().waiting, 0U);
    EXPECT_EQ(statistics().removed, 0U);
}

TEST_P(ProviderTest, ManyWaitersAreWoken) {
    for (std::uint64_t i = 1; i <= 1000; ++i) { view->fields.set(i, 7); }
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 0U);
    EXPECT_EQ(statistics().waiting, 1000U);
    view->herds.set(7, {});
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 1000U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEncoderThatThrowsCostsItsEntryOnly) {
    view->encoderFails = 1;
    view->beasts.set(1, "red");
    view->beasts.set(2, "blue");
    settle();
    EXPECT_EQ(statistics().failed, 1U);
    EXPECT_EQ(shown(Lane::nextHops), 1U);
    view->beasts.publish(1);
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 2U);
}

TEST_P(ProviderTest, WhatGoesTogetherGoesInReverseOrderOfReference) {
    constexpr std::uint64_t kEach = 40;
    for (std::uint64_t i = 1; i <= kEach; ++i) {
        view->beasts.set(i, "red");
        view->herds.set(i, {{i}});
        view->fields.set(i, i);
    }
    settle();
    ASSERT_EQ(shown(Lane::prefixes), kEach);
    std::size_t slices = 0;
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        ++slices;
        if (shown(Lane::groups) < kEach) { EXPECT_EQ(shown(Lane::prefixes), 0U); }
        if (shown(Lane::nextHops) < kEach) { EXPECT_EQ(shown(Lane::groups), 0U); }
    });
    view->beasts.clear();  // the walks have no order among each other
    view->herds.clear();
    view->fields.clear();
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 0U);
    EXPECT_GT(slices, 0U);
}

TEST_P(ProviderTest, AnEntryThatComesBackBeforeItsRemovalStays) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    settle();
    const auto removed = statistics().removed;
    view->beasts.erase(1);
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(statistics().removed, removed);
    EXPECT_EQ(shown(Lane::nextHops), 1U);
}

TEST_P(ProviderTest, StampsGrowEvenWhileTimeStandsStill) {
    const std::int64_t before = stamps.last();
    view->beasts.set(1, "red");
    settle();
    const std::int64_t first = stamps.last();
    EXPECT_GT(first, before);
    view->beasts.set(1, "green");
    settle();
    const std::int64_t second = stamps.last();
    EXPECT_GT(second, first);
    view->beasts.publish(1);  // unchanged
    settle();
    EXPECT_EQ(stamps.last(), second);
    EXPECT_EQ(statistics().unchanged, 1U);
}

TEST_P(ProviderTest, AFlagIsToldWhenAllThatWasMarkedBeforeItIsShownOrRemoved) {
    constexpr std::uint64_t kEach = 40;
    view->fields.set(1000, 7);
    view->herds.set(7, {});
    settle();
    for (std::uint64_t i = 1; i <= kEach; ++i) { view->fields.set(i, 7); }
    view->fields.erase(1000);
    view->open.set(0, true);
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        if (!view->saidOpen) { return; }
        EXPECT_EQ(shown(Lane::prefixes), kEach);
    });
    settle();
    EXPECT_TRUE(view->saidOpen);
}

TEST_P(ProviderTest, AFlagWaitsForWhatIsHeldBack) {
    view->pendingHerds = {7};
    view->fields.set(5, 7);
    view->open.set(0, true);
    settle();
    EXPECT_FALSE(view->saidOpen);
    view->fields.set(6, 7);  // later, and no concern of the flag; it waits for the same, though
    view->beasts.set(1, "red");
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 1U) << "nothing else waits for the flag";
    EXPECT_FALSE(view->saidOpen);
    view->pendingHerds = {};
    view->herds.set(7, {});
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        if (view->saidOpen) { EXPECT_EQ(shown(Lane::prefixes), 2U); }
    });
    settle();
    EXPECT_TRUE(view->saidOpen);
}

TEST_P(ProviderTest, AFlagWaitsNoLongerThanPatience) {
    view->fields.set(5, 7);
    view->open.set(0, true);
    settle();
    advance(std::chrono::seconds(29));
    EXPECT_FALSE(view->saidOpen);
    advance(std::chrono::seconds(1));
    EXPECT_TRUE(view->saidOpen);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
}

TEST_P(ProviderTest, AFlagDoesNotWaitForWhatIsHeldBackLater) {
    view->pendingHerds = {7, 8};
    view->fields.set(5, 7);
    view->open.set(0, true);
    settle();
    view->fields.set(6, 8);
    settle();
    view->pendingHerds = {8};
    view->herds.set(7, {});
    settle();
    EXPECT_TRUE(view->saidOpen);
    EXPECT_EQ(statistics().waiting, 1U);
}

TEST_P(ProviderTest, AFlagIsToldThoughEverythingGoesOnChanging) {
    view->herds.set(7, {});
    settle();
    for (std::uint64_t i = 1; i <= 20; ++i) { view->fields.set(i, 7); }
    constexpr std::uint64_t kTurns = 1000;
    std::uint64_t turns = 0;
    std::uint64_t saidAt = 0;
    Kiln::Task churn{scheduler, "Churn", 3, [&] {
                         ++turns;
                         if (turns == 5) {
                             view->fields.set(21, 7);
                             view->open.set(0, true);
                         }
                         if (saidAt == 0 && view->saidOpen) {
                             saidAt = turns;
                             for (std::uint64_t i = 1; i <= 21; ++i) {
                                 const EntryKey key{0, 0, i};
                                 EXPECT_NE(channel().journal.find(Lane::prefixes, key), nullptr);
                             }
                         }
                         // More than a slice can take.
                         view->beasts.set(turns, "red");
                         view->beasts.set(turns + kTurns, "red");
                         view->fields.set(turns + 100, 7);
                         view->fields.erase(turns + 90);
                         return turns < kTurns;
                     }};
    churn.schedule();
    settle();
    EXPECT_GT(saidAt, 0U);
    EXPECT_LT(saidAt, 200U);
    EXPECT_EQ(shown(Lane::nextHops), 2 * kTurns) << "nothing is lost";
    EXPECT_EQ(shown(Lane::prefixes), 21U + 10U);
}

TEST_P(ProviderTest, WhatComesWhileALongRoundGoesOnDoesNotWaitForItsEnd) {
    constexpr std::uint64_t kEach = 100;
    view->herds.set(7, {});
    settle();
    for (std::uint64_t i = 1; i <= kEach; ++i) { view->fields.set(i, 7); }
    view->open.set(0, true);
    Kiln::Task later{scheduler, "Later", 3, [&] {
                         view->beasts.set(1, "red");
                         return false;
                     }};
    std::size_t prefixesBefore = 0;  // the beast
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        if (shown(Lane::prefixes) == 10) { later.schedule(); }
        if (shown(Lane::nextHops) == 0) { prefixesBefore = shown(Lane::prefixes); }
    });
    settle();
    EXPECT_EQ(shown(Lane::nextHops), GetParam() ? 1U : 0U) << "one slice takes all";
    EXPECT_LE(prefixesBefore, GetParam() ? 15U : kEach);
    EXPECT_EQ(shown(Lane::prefixes), kEach);
    EXPECT_TRUE(view->saidOpen);
}

TEST_P(ProviderTest, AnEntryThatIsToldAgainInTheNextRoundIsNotTakenForMissingInThisOne) {
    view->herds.publish(7);  // looked at, and not there
    settle();
    view->fields.set(5, 7);
    view->open.set(0, true);
    view->herds.set(7, {});
    const auto watch = scheduler->onSliceEnd().subscribe(
        [&] { EXPECT_LE(shown(Lane::prefixes), shown(Lane::groups)); });
    settle();
    EXPECT_EQ(shown(Lane::prefixes), 1U);
    EXPECT_EQ(shown(Lane::groups), 1U);
    EXPECT_TRUE(view->saidOpen);
}

INSTANTIATE_TEST_SUITE_P(, ProviderTest, testing::Bool(), [](const auto& always) {
    return std::string{always.param ? "AlwaysYield" : "NeverYield"};
});

TEST_P(ProviderTest, ACollectionThatIsClearedAtOnceIsNoLongerShown) {
    for (std::uint64_t i = 1; i <= 3; ++i) { view->beasts.set(i, "red"); }
    view->herds.set(7, {{1, 2}});
    settle();
    view->beasts.set(4, "blue");  // not shown yet
    view->herds.clear();
    view->beasts.clear();
    view->beasts.set(2, "green");
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::nextHops), 1U);
    EXPECT_NE(channel().journal.find(Lane::nextHops, {0, 0, 2}), nullptr);
    EXPECT_EQ(statistics().removed, 3U);
}

}  // namespace
}  // namespace Gale
