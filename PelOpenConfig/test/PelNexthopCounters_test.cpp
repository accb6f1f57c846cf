#include "PelOpenConfig/PelNexthopCounters.h"

#include <map>
#include <optional>
#include <set>
#include <tuple>

#include "PelOpenConfig/test/MapperFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using Pick = PelOcNextHopCountersMap::Pick;

Pick pick(std::uint64_t counterIndex) {
    return Pick::indexAndTypeToPick(counterIndex, 2);
}

class NexthopCountersFixture : public MapperFixture {
protected:
    /// Next hop 7, the one of the group's entry 7, exported over counter 70.
    void exported() {
        nextHopIs(7);
        counterKeyIs(nhgeck(7), 70);
        publish();
        start();
        settle();
    }
    std::vector<std::uint64_t> ofPick(std::uint64_t counterIndex) const {
        std::vector<std::uint64_t> ids;
        if (const auto* const found =
                pelOcNextHopCountersMap->pickToOcNextHopIds().find(pick(counterIndex))) {
            for (const auto id : found->ocNextHopIdSet().ids()) { ids.push_back(id.value()); }
        }
        return ids;
    }
    /// 0: none.
    std::uint64_t ofNhgeck(const NexthopGroupEntryCounterKey& key) const {
        const auto* const found = pelOcNextHopCountersMap->nhgeckToOcNextHopId().find(key);
        return found == nullptr ? 0 : found->ocNextHopId.value();
    }
    /// Counter index and entry of a group, nothing when there is no link.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> linkOf(std::uint64_t id) const {
        const auto* const found =
            pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().find(nh(id));
        if (found == nullptr) { return std::nullopt; }
        return std::pair{found->pick().counterIndex(),
                         std::uint64_t{found->nhgeck().entryId.value()}};
    }
    /// Picks, entries of groups, next hops.
    std::tuple<std::size_t, std::size_t, std::size_t> mapSizes() const {
        return {pelOcNextHopCountersMap->pickToOcNextHopIds().size(),
                pelOcNextHopCountersMap->nhgeckToOcNextHopId().size(),
                pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().size()};
    }
    void countersAre(std::uint64_t id, std::uint64_t packets, std::uint64_t octets) {
        pelOcFecExportData->passTheNhCountersUpdate({nh(id), packets, octets});
    }
    /// "packets/octets", "none".
    std::string shown(std::uint64_t id) const {
        const auto* const counter = nextHopCounterSet->nextHopCounter(OcApi::NextHopIndex{id});
        return counter == nullptr ? "none"
                                  : std::to_string(counter->packetsForwarded) + "/" +
                                        std::to_string(counter->octetsForwarded);
    }
    void entryIs(std::uint64_t id, const NexthopGroupEntryCounterKey& key) {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop);
        nextHops.set(nh(id),
                     {nh(id), key.nhgId, key.entryId, {}},
                     Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
    }
};

using NexthopCountersMap = UnderBothPolicies<NexthopCountersFixture>;
INSTANTIATE_TEST_SUITE_P(,
                         NexthopCountersMap,
                         testing::Values(Yield::never, Yield::always),
                         yieldName);

TEST_P(NexthopCountersMap, AnExportedNextHopIsLinkedToTheCounterOfItsEntryOfAGroup) {
    exported();
    EXPECT_THAT(ofPick(70), ElementsAre(7));
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 7U);
    EXPECT_EQ(linkOf(7), (std::pair<std::uint64_t, std::uint64_t>{70, 7}));
    const auto all = texts();
    EXPECT_THAT(std::vector(all.end() - 6, all.end() - 1),
                ElementsAre("nextHopId 7 with nhgId 1, entryId 7 to add to map",
                            "counterIndex 70",
                            "nextHopId 7 not present in map",
                            "pick entry 2:70",
                            "Added"));
}

TEST_P(NexthopCountersMap, ExportedAgainAsItWasItHasExactlyOneLink) {
    exported();
    const TestSupport::TraceCapture later;
    nextHopIs(7, "eth9");
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(1U, 1U, 1U));
    EXPECT_THAT(ofPick(70), ElementsAre(7));
    EXPECT_TRUE(later.has("nextHopId 7 to delete from map")) << "the old link goes first";
}

TEST_P(NexthopCountersMap, AnotherCounterIndexMovesTheLink) {
    exported();
    const TestSupport::TraceCapture later;
    counterKeyIs(nhgeck(7), 71);
    publish();
    EXPECT_THAT(later.texts("PelNexthopMapperSm"),
                ElementsAre("nhgeck nhgId 1 entryId 7 updated",
                            "nextHopId 7 with nhgId 1, entryId 7 to add to map",
                            "counterIndex 71",
                            "nextHopId 7 to delete from map",
                            "pick entry 2:71"))
        << "without a walk";
    EXPECT_THAT(ofPick(70), ElementsAre());
    EXPECT_THAT(ofPick(71), ElementsAre(7));
    EXPECT_EQ(mapSizes(), std::tuple(1U, 1U, 1U));
}

TEST_P(NexthopCountersMap, AnEntryOfAGroupThatIsNoNextHopsIsLeftAlone) {
    exported();
    const TestSupport::TraceCapture later;
    counterKeyIs(nhgeck(8), 80);
    publish();
    EXPECT_THAT(later.texts("PelNexthopMapperSm"), ElementsAre());
    EXPECT_EQ(mapSizes(), std::tuple(1U, 1U, 1U));
}

TEST_P(NexthopCountersMap, WithoutACounterIndexOnlyTheEntryOfTheGroupIsNoted) {
    nextHopIs(7);
    publish();
    start();
    settle();
    EXPECT_TRUE(traces.has("counterIndex 0"));
    EXPECT_TRUE(traces.has("invalid counterIndex"));
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 7U);
    counterKeyIs(nhgeck(7), 70);
    publish();
    EXPECT_THAT(ofPick(70), ElementsAre(7)) << "so that the index finds it when it comes";
}

TEST_P(NexthopCountersMap, ACounterIndexThatBecomesInvalidRemovesTheCountersAndTheLinks) {
    exported();
    countersAre(7, 1, 2);
    ASSERT_EQ(shown(7), "1/2");
    counterKeyIs(nhgeck(7), 0);
    publish();
    EXPECT_EQ(shown(7), "none");
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U)) << "the old counter must not feed it any more";
}

TEST_P(NexthopCountersMap, ARowThatGoesIsNoCounterIndex) {
    exported();
    countersAre(7, 1, 2);
    counterKeyDel(nhgeck(7));
    publish();
    EXPECT_EQ(shown(7), "none");
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
}

TEST_P(NexthopCountersMap, ARowThatDoesNotVerifyIsNoCounterIndexAndIsToldToItsTable) {
    exported();
    countersAre(7, 1, 2);
    const auto table =
        writer->tableIs(CounterKeyTable::kPath, CounterKeyTable::kType, Store::TableKind::table);
    writer->put(table, Store::KeyCodec<NexthopGroupEntryCounterKey>::encode(nhgeck(7)), "x");
    publish();
    EXPECT_EQ(shown(7), "none");
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
    EXPECT_EQ(counterKeyTable->corruptions(), 1U);
}

TEST_P(NexthopCountersMap, ADeletedNextHopTakesAllItsLinksWithIt) {
    exported();
    nextHopDel(7);
    const TestSupport::TraceCapture later;
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
    EXPECT_TRUE(later.has("nextHopId 7 to delete from map"));
}

TEST_P(NexthopCountersMap, ADeletedNextHopWithoutACounterTakesItsEntryOfTheGroupWithIt) {
    nextHopIs(7);
    publish();
    start();
    settle();
    nextHopDel(7);
    const TestSupport::TraceCapture later;
    publish();
    EXPECT_TRUE(later.has("nextHopId 7 not present in map"));
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
}

TEST_P(NexthopCountersMap, OfTwoNextHopsUnderOnePickOneMayGo) {
    exported();
    nextHopIs(8);
    counterKeyIs(nhgeck(8), 70);
    publish();
    EXPECT_THAT(ofPick(70), ElementsAre(7, 8));
    nextHopDel(7);
    publish();
    EXPECT_THAT(ofPick(70), ElementsAre(8));
    nextHopDel(8);
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
}

TEST_P(NexthopCountersMap, APickThatIsNotThereIsTracedAndTheRestOfTheLinkGoes) {
    exported();
    pelOcNextHopCountersMap->pickToOcNextHopIdsDel(pick(70));
    sut->deleteFromOcNextHopCountersMap(nh(7), true);
    EXPECT_TRUE(traces.has("pick 2:70 not present in map"));
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
}

TEST_P(NexthopCountersMap, WithoutTheFlagTheEntryOfTheGroupStays) {
    exported();
    sut->deleteFromOcNextHopCountersMap(nh(7), false);
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
}

TEST_P(NexthopCountersMap, AnEntryOfAGroupThatAnotherNextHopTakesOverIsItsAlone) {
    exported();
    countersAre(7, 1, 2);
    entryIs(8, nhgeck(7));
    publish();
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 8U);
    EXPECT_THAT(ofPick(70), ElementsAre(8));
    EXPECT_EQ(linkOf(7), std::nullopt);
    EXPECT_EQ(shown(7), "none") << "the counter is not its own any more";
    nextHopDel(7);
    publish();
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 8U) << "the first one's deletion leaves the second's link";
    counterKeyIs(nhgeck(7), 71);
    publish();
    EXPECT_THAT(ofPick(71), ElementsAre(8));
    nextHopDel(8);
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
}

TEST_P(NexthopCountersMap, AnEntryOfAGroupWithoutACounterMayBeTakenOver) {
    nextHopIs(7);
    publish();
    start();
    settle();
    entryIs(8, nhgeck(7));
    publish();
    nextHopDel(7);
    publish();
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 8U);
    counterKeyIs(nhgeck(7), 70);
    publish();
    EXPECT_THAT(ofPick(70), ElementsAre(8));
}

TEST_P(NexthopCountersMap, ANextHopThatBecomesAnotherEntryOfAGroupLeavesNothingBehind) {
    exported();
    counterKeyIs(nhgeck(9), 90);
    entryIs(7, nhgeck(9));
    publish();
    EXPECT_EQ(ofNhgeck(nhgeck(7)), 0U);
    EXPECT_THAT(ofPick(90), ElementsAre(7));
    EXPECT_EQ(mapSizes(), std::tuple(1U, 1U, 1U));
    entryIs(7, nhgeck(10));
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
    entryIs(7, nhgeck(11));
    publish();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U)) << "also of one without a counter";
    EXPECT_EQ(ofNhgeck(nhgeck(11)), 7U);
}

TEST_P(NexthopCountersMap, RowsThatWereThereWhenTheTableCameAreTakenIn) {
    nextHopIs(7);
    counterKeyIs(nhgeck(7), 70);
    publish();
    counterKeyTable = Vel::make<CounterKeyTable>(CounterKeyTable::kPath);
    start();
    settle();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
    counterKeyTable->mountIs(*reader);
    settle();
    EXPECT_THAT(ofPick(70), ElementsAre(7));
}

TEST_P(NexthopCountersMap, WithoutATableNoNextHopHasACounter) {
    counterKeyTable = nullptr;
    nextHopIs(7);
    publish();
    start();
    settle();
    EXPECT_NE(entry(7), nullptr);
    EXPECT_EQ(mapSizes(), std::tuple(0U, 1U, 0U));
}

TEST_P(NexthopCountersMap, CountersAreShownOfAnExportedNextHop) {
    exported();
    countersAre(7, 5, 6);
    EXPECT_EQ(shown(7), "5/6");
    EXPECT_EQ(sut->nhCounters().size(), 0U) << "what is shown is kept once";
    countersAre(7, 0, 0);
    EXPECT_EQ(shown(7), "0/0") << "all zero of a next hop is a value";
    countersAre(0, 0, 0);
    EXPECT_EQ(nextHopCounterSet->size(), 1U);
}

TEST_P(NexthopCountersMap, CountersWaitForTheExportOfTheirNextHop) {
    counterKeyIs(nhgeck(7), 70);
    publish();
    start();
    publish();
    countersAre(7, 1, 2);
    countersAre(7, 5, 6);
    EXPECT_EQ(shown(7), "none");
    std::vector<std::string> order;
    const auto a = nextHopSet->onNextHop().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("entry"); });
    const auto b = nextHopCounterSet->onNextHopCounter().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("counters"); });
    nextHopIs(7);
    publish();
    EXPECT_EQ(shown(7), "5/6");
    EXPECT_THAT(order, ElementsAre("entry", "counters"));
}

TEST_P(NexthopCountersMap, CountersOfANextHopWhoseCounterIsNotKnownAreShownAndTakenBack) {
    nextHopIs(7);
    publish();
    start();
    settle();
    countersAre(7, 5, 6);
    EXPECT_EQ(shown(7), "5/6") << "as those of a tunnel are";
    nextHopIs(7, "eth9");
    publish();
    EXPECT_EQ(shown(7), "none");
    ASSERT_NE(sut->nhCounters().find(nh(7)), nullptr);
    EXPECT_EQ(sut->nhCounters().find(nh(7))->packetsForwarded, 5U);
    counterKeyIs(nhgeck(7), 70);
    nextHopIs(7, "eth10");
    publish();
    EXPECT_EQ(shown(7), "5/6") << "they are known all the time";
}

TEST_P(NexthopCountersMap, CountersWhileTheStashIsNotReadyAreDropped) {
    start();
    ASSERT_FALSE(stashMountGroup->ready());
    countersAre(7, 1, 2);
    EXPECT_EQ(sut->nhCounters().size(), 0U);
    nextHopIs(7);
    counterKeyIs(nhgeck(7), 70);
    publish();
    EXPECT_EQ(shown(7), "none");
}

TEST_P(NexthopCountersMap, CountersAfterTheNextHopLeftAreNotShown) {
    exported();
    countersAre(7, 1, 2);
    nextHopDel(7);
    publish();
    EXPECT_EQ(shown(7), "none");
    countersAre(7, 3, 4);
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
}

TEST_P(NexthopCountersMap, CountersBetweenTheNextHopsDeletionAndItsWalkGoWithIt) {
    exported();
    countersAre(7, 1, 2);
    nextHopDel(7);
    commit();
    const auto left =
        flattenFecSet->nextHop().onKey().subscribe([this](const Stash::OcNextHopIndex&) {
            countersAre(7, 3, 4);
            EXPECT_EQ(shown(7), "1/2") << "it is not in the set any more";
        });
    settleAfterASecond();
    EXPECT_EQ(shown(7), "none");
    EXPECT_EQ(sut->nhCounters().size(), 0U);
}

TEST_P(NexthopCountersMap, OfNextHopsThatNeverComeOnlyTheLastCountersAreKept) {
    publish();
    start();
    settle();
    constexpr std::uint64_t kMany = NexthopCounters::kStrays + 100;
    for (std::uint64_t id = 1; id <= kMany; ++id) { countersAre(id, id, 1); }
    EXPECT_EQ(sut->nhCounters().size(), NexthopCounters::kStrays);
    EXPECT_EQ(sut->nhCounters().find(nh(100)), nullptr);
    EXPECT_NE(sut->nhCounters().find(nh(101)), nullptr);
}

TEST_P(NexthopCountersMap, CountersOfANextHopThatIsInTheSetAreKeptHoweverManyOthersCome) {
    nextHopContentIs(7, "cannot be read");
    publish();
    start();
    settle();
    countersAre(7, 5, 6);
    for (std::uint64_t id = 0; id < NexthopCounters::kStrays + 100; ++id) {
        countersAre(1000 + id, 1, 1);
    }
    counterKeyIs(nhgeck(7), 70);
    publish();
    nextHopIs(7);
    publish();
    EXPECT_EQ(shown(7), "5/6");
}

TEST_P(NexthopCountersMap, WhatIsLeftOfNextHopsThatWentUnseenGoes) {
    nextHopCounterSet->nextHopCounterIs({OcApi::NextHopIndex{5}, 1, 1});
    OcApi::NextHop left;
    left.index = OcApi::NextHopIndex{6};
    nextHopSet->nextHopIs(left);
    exported();
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
    EXPECT_EQ(nextHopSet->size(), 1U);
    EXPECT_EQ(traces.count("nhId to process 6"), 1U);
}

TEST_P(NexthopCountersMap, CountersOfNextHopsThatAreNotInTheSetDoNotOutliveTheStash) {
    publish();
    start();
    settle();
    countersAre(7, 1, 2);
    ASSERT_EQ(sut->nhCounters().size(), 1U);
    sut->handleStashReady();
    settle();
    EXPECT_EQ(sut->nhCounters().size(), 0U);
}

TEST_P(NexthopCountersMap, CleanupEmptiesTheMapAndASwitchedOffMachineTakesNothingIn) {
    exported();
    countersAre(7, 1, 2);
    sut->hasNotificationActiveIs(false);
    sut->handleCleanup();
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
    EXPECT_EQ(shown(7), "1/2") << "not emptied here";
    countersAre(7, 3, 4);
    counterKeyIs(nhgeck(7), 71);
    publish();
    EXPECT_EQ(shown(7), "1/2");
    EXPECT_EQ(mapSizes(), std::tuple(0U, 0U, 0U));
}

TEST_P(NexthopCountersMap, MessagesCarryTheFunctionNamesOfTheirSteps) {
    exported();
    counterKeyIs(nhgeck(7), 0);
    publish();
    nextHopDel(7);
    publish();
    std::map<std::string, std::string> seen;
    for (const Blink::Message& message : traces.messages()) {
        if (message.handle == "PelNexthopMapperSm") { seen[message.text] = message.function; }
    }
    EXPECT_EQ(seen["nextHopId 7 with nhgId 1, entryId 7 to add to map"],
              "addToOcNextHopCountersMap");
    EXPECT_EQ(seen["counterIndex 70"], "addToOcNextHopCountersMap");
    EXPECT_EQ(seen["invalid counterIndex"], "addToOcNextHopCountersMap");
    EXPECT_EQ(seen["pick entry 2:70"], "addToOcNextHopCountersMap");
    EXPECT_EQ(seen["nextHopId 7 not present in map"], "deleteFromOcNextHopCountersMap");
    EXPECT_EQ(seen["nextHopId 7 to delete from map"], "deleteFromOcNextHopCountersMap");
    EXPECT_EQ(seen["nhgeck nhgId 1 entryId 7 updated"], "handleCounterKeyTableUpdate");
}

TEST(OcNextHopIds, AreASetInOrder) {
    OcNextHopIdSet sut;
    EXPECT_TRUE(sut.empty());
    std::set<std::uint64_t> wanted;
    std::uint64_t random = 1;
    for (int step = 0; step < 2000; ++step) {
        random = random * 6364136223846793005U + 1442695040888963407U;
        const std::uint64_t id = random >> 61U;
        if ((random >> 40U) % 2 == 0) {
            sut.insert(Stash::OcNextHopIndex{id});
            wanted.insert(id);
        } else {
            sut.erase(Stash::OcNextHopIndex{id});
            wanted.erase(id);
        }
        ASSERT_EQ(sut.size(), wanted.size());
        ASSERT_EQ(sut.empty(), wanted.empty());
        for (std::uint64_t each = 0; each < 8; ++each) {
            ASSERT_EQ(sut.contains(Stash::OcNextHopIndex{each}), wanted.contains(each));
        }
        std::vector<std::uint64_t> ids;
        for (const auto each : sut.ids()) { ids.push_back(each.value()); }
        ASSERT_EQ(ids, std::vector(wanted.begin(), wanted.end()));
        if (!wanted.empty()) { ASSERT_EQ(sut.first().value(), *wanted.begin()); }
    }
}

}  // namespace
}  // namespace Pel::Oc
