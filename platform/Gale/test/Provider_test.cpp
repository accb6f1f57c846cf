#include "platform/Gale/test/ProviderFixture.h"
#include "test/support/TempDir.h"

namespace Gale {
namespace {

using ProviderTest = ProviderFixture;

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

/// What it names went, and that it goes as well has been told but not been considered.
TEST_P(ProviderTest, WhatAShownEntryNamesStaysUntilThatWasConsidered) {
    view->beasts.set(1, "red");
    view->herds.set(7, {{1}});
    settle();
    view->pendingHerds = {7};
    view->beasts.erase(1);
    view->herds.publish(7);
    settle();
    view->herds.publish(7);
    settle();
    EXPECT_EQ(shown(Lane::nextHops), 1U);
    view->pendingHerds = {};
    view->herds.erase(7);
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    EXPECT_EQ(shown(Lane::nextHops), 0U);
    EXPECT_EQ(statistics().waiting, 0U);
}

TEST_P(ProviderTest, AnEntryThatIsToBeConsideredAnewIsNotShownWithoutWhatItNames) {
    view->beasts.publish(1);  // looked at, and not there
    view->pendingHerds = {7, 8};
    view->herds.set(7, {{1}});
    view->herds.set(8, {{1}});
    settle();
    EXPECT_EQ(shown(Lane::groups), 0U);
    view->pendingHerds = {8};
    view->herds.erase(7);
    settle();
    EXPECT_EQ(statistics().waiting, 1U) << "the one that went is forgotten";
    advance(std::chrono::seconds(29));
    EXPECT_EQ(shown(Lane::groups), 0U);
    advance(std::chrono::seconds(1));
    EXPECT_EQ(shown(Lane::groups), 1U) << "no longer than patience";
    EXPECT_EQ(statistics().waiting, 0U);
    view->herds.set(7, {{1}});
    view->pendingHerds = {7};
    settle();
    EXPECT_EQ(shown(Lane::groups), 2U) << "missing for so long, it holds nobody any more";
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

INSTANTIATE_TEST_SUITE_P(, ProviderTest, testing::Bool(), ProviderFixture::name);

}  // namespace
}  // namespace Gale
