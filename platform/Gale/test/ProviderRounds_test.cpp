#include "platform/Gale/test/ProviderFixture.h"

namespace Gale {
namespace {

using ProviderRounds = ProviderFixture;

TEST_P(ProviderRounds, AFlagIsToldWhenAllThatWasMarkedBeforeItIsShownOrRemoved) {
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

TEST_P(ProviderRounds, AFlagWaitsForWhatIsHeldBack) {
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

TEST_P(ProviderRounds, AFlagWaitsNoLongerThanPatience) {
    view->fields.set(5, 7);
    view->open.set(0, true);
    settle();
    advance(std::chrono::seconds(29));
    EXPECT_FALSE(view->saidOpen);
    advance(std::chrono::seconds(1));
    EXPECT_TRUE(view->saidOpen);
    EXPECT_EQ(shown(Lane::prefixes), 1U);
}

TEST_P(ProviderRounds, AFlagDoesNotWaitForWhatIsHeldBackLater) {
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

TEST_P(ProviderRounds, AFlagIsToldThoughEverythingGoesOnChanging) {
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

TEST_P(ProviderRounds, WhatComesWhileALongRoundGoesOnDoesNotWaitForItsEnd) {
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

TEST_P(ProviderRounds, AnEntryThatIsToldAgainInTheNextRoundIsNotTakenForMissingInThisOne) {
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

INSTANTIATE_TEST_SUITE_P(, ProviderRounds, testing::Bool(), ProviderFixture::name);

}  // namespace
}  // namespace Gale
