#include "PelOpenConfig/PelCountersMapperSm.h"

#include <algorithm>
#include <map>

#include "PelOpenConfig/test/CountersFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kRangeError =
    "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
    "Tunnel::TunnelTable::TunnelId::maxValue not allowed";

using CountersMapper = UnderBothPolicies<CountersFixture>;
INSTANTIATE_TEST_SUITE_P(, CountersMapper, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(CountersMapper, InitialisationStartsThenAsksTheStash) {
    startCounters();
    EXPECT_THAT(counterTexts(), ElementsAre("Starting", "StashMountGroup ready: false"));
    EXPECT_EQ(counters->walkStatistics().name, "CountersMapperSmTask");
    EXPECT_EQ(counters->walkStatistics().priority, 4);
    EXPECT_TRUE(counters->initialized());
}

TEST_P(CountersMapper, StashReadySweepsTheTunnelsOfAllFecs) {
    tunnelIs(5, {1});
    tunnelIs(0xFFF, {1});
    for (const std::uint64_t id : {41U, 42U}) { fecIs(id); }
    fecIs(makeFecId(FecKind::scenario, 1).value());
    startCounters();
    publish();
    const auto texts = counterTexts();
    EXPECT_THAT(texts,
                ElementsAre("Starting",
                            "StashMountGroup ready: false",
                            "StashMountGroup ready: true",
                            "counters to process for the counterIndex 0 pick 2:0",
                            "counters to process for the counterIndex 422233939902464 pick "
                            "2:422233939902464",
                            "Update NextHop Counters for tunnelId 98309",
                            "Dont have valid counters for counterIndex 422233939902464",
                            "counters to process for the counterIndex 439800356143104 pick "
                            "2:439800356143104",
                            "Update NextHop Counters for tunnelId 102399",
                            "Dont have valid counters for counterIndex 439800356143104"));
    EXPECT_TRUE(counters->backlogEmpty());
}

TEST_P(CountersMapper, AnEmptySetGivesNoWalk) {
    publish();
    ASSERT_TRUE(stashMountGroup->ready());
    startCounters();
    EXPECT_TRUE(counters->backlogEmpty());
    settle();
    EXPECT_EQ(counters->walkStatistics().runs, 0U);
}

TEST_P(CountersMapper, NothingIsTakenInBeforeItIsInitialised) {
    tunnelIs(5, {1});
    countedNextHopIs(7);
    counterTableIs();
    publish();
    start();
    settle();
    counters = makeCounters();
    counters->handleCounterUpdates(CounterIndex{7});
    counters->handleCounterUpdates(beyondTunnels());
    counters->handleFlattenFecSetFecUpdates(tunnelFec(5));
    counters->handleCountersPresent();
    EXPECT_TRUE(counters->backlogEmpty());
    EXPECT_THAT(counterTexts(), IsEmpty());
    counterIs(tunnelIndex(5), {9, 0});
    publish();
    EXPECT_THAT(passed, IsEmpty());
    counters->handleInitialized();
    settle();
    EXPECT_THAT(passed, ElementsAre(Passed(1, 9, 0))) << "the sweep has the tunnels again";
}

TEST_P(CountersMapper, AnElementBeforeItIsInitialisedIsDropped) {
    counters = makeCounters();
    counterIs(tunnelIndex(5), {9, 0});
    tunnelIs(5, {1});
    counters->backlogIs(tunnelIndex(5));
    publish();  // the stash becomes ready: a walk
    EXPECT_TRUE(counters->backlogEmpty());
    EXPECT_THAT(counterTexts(), ElementsAre("StashMountGroup ready: true"));
    EXPECT_THAT(passed, IsEmpty());
}

TEST_P(CountersMapper, ACounterGoesWholeToItsNextHop) {
    exported();
    EXPECT_THAT(tracesOf([this] {
                    counterIs(7, 10, 640);
                    commit();
                }),
                ElementsAre("counterIndex 7 pick 2:7",
                            "counters to process for the counterIndex 7 pick 2:7",
                            "Update NHG NextHop Counters",
                            "Update nhCounters ( pkts 10, octets 640 )  collection nhId 7"));
    EXPECT_THAT(passed, ElementsAre(Passed(7, 10, 640)));
    EXPECT_EQ(packets(7), 10U);
    ASSERT_NE(shown(7), nullptr);
    EXPECT_EQ(shown(7)->octetsForwarded, 640U);
}

TEST_P(CountersMapper, EqualValuesInARowAreHandedOverEachTime) {
    exported();
    for (int i = 0; i < 2; ++i) {
        counterIs(7, 10, 640);
        publish();
    }
    EXPECT_THAT(passed, ElementsAre(Passed(7, 10, 640), Passed(7, 10, 640)));
}

TEST_P(CountersMapper, ManyChangesBeforeTheWalkAreHandedOverOnceWithTheLatestValue) {
    exported();
    for (std::uint64_t packets = 1; packets <= 5; ++packets) {
        counterIs(7, packets, 0);
        commit();
    }
    const auto texts = tracesOf([] {});
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "counterIndex 7 pick 2:7"), 5);
    EXPECT_THAT(passed, ElementsAre(Passed(7, 5, 0)));
}

TEST_P(CountersMapper, ACounterThatFeedsNothingExportedIsLeftAlone) {
    exported();
    EXPECT_THAT(tracesOf([this] {
                    counterIs(9, 10, 640);
                    commit();
                }),
                ElementsAre("counterIndex 9 pick 2:9"));
}

TEST_P(CountersMapper, ACounterWhoseNextHopLeftBeforeTheWalkIsDropped) {
    exported();
    const TestSupport::TraceCapture later;
    counters->backlogIs(CounterIndex{9});
    counters->handleFlattenFecSetFecUpdates(FecId{1});
    settle();
    EXPECT_TRUE(later.has("counters to process for the counterIndex 9 pick 2:9"));
    EXPECT_FALSE(later.has("Update NHG NextHop Counters"));
    EXPECT_THAT(passed, IsEmpty());
}

TEST_P(CountersMapper, OfSeveralNextHopsUnderOnePickOnlyTheFirstIsServed) {
    exported();
    for (const std::uint64_t id : {9U, 5U, 6U}) {
        nextHopIs(id);
        counterKeyIs(nhgeck(id), 50);
    }
    counterIs(50, 10, 640);
    publish();
    counterIs(50, 11, 650);
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(5, 11, 650)));
    EXPECT_EQ(shown(6), nullptr);
    EXPECT_EQ(shown(9), nullptr);
}

TEST_P(CountersMapper, ACounterThatIsAbsentOrAllZeroIsNoValue) {
    exported();
    const auto expectNone = [](const std::vector<std::string>& texts) {
        EXPECT_THAT(texts,
                    ElementsAre("counterIndex 7 pick 2:7",
                                "counters to process for the counterIndex 7 pick 2:7",
                                "Update NHG NextHop Counters",
                                "Dont have valid counters for counterIndex 7"));
    };
    expectNone(tracesOf([this] {
        counterIs(7, 0, 0);
        commit();
    }));
    expectNone(tracesOf([this] {
        counterDel(7);
        commit();
    }));
    EXPECT_THAT(passed, IsEmpty());
    counterIs(7, 0, 1);
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(7, 0, 1))) << "one of the two is enough";
}

TEST_P(CountersMapper, ARecordThatDoesNotVerifyReadsAsNoValueAndIsToldToItsTable) {
    exported();
    const auto table =
        writer->tableIs(CounterTable::kPath, CounterTable::kType, Store::TableKind::table);
    writer->put(table, Store::KeyCodec<CounterIndex>::encode(CounterIndex{7}), "rubbish");
    publish();
    EXPECT_TRUE(traces.has("Dont have valid counters for counterIndex 7"));
    EXPECT_EQ(counterTable->corruptions(), 1U);
    EXPECT_THAT(passed, IsEmpty());
}

TEST_P(CountersMapper, CountersThatWereThereWhenTheTableCameAreTakenIn) {
    for (const std::uint64_t id : {7U, 8U}) { countedNextHopIs(id); }
    counterIs(7, 10, 640);
    counterIs(9, 1, 1);
    counterIs(beyondTunnels(), {1, 1});
    publish();
    start();
    counterTable = Vel::make<CounterTable>(CounterTable::kPath);
    startCounters();
    settle();
    EXPECT_THAT(passed, IsEmpty());
    counterTable->mountIs(*reader);
    settle();
    EXPECT_THAT(passed, ElementsAre(Passed(7, 10, 640)));
    EXPECT_TRUE(counters->backlogEmpty());
}

TEST_P(CountersMapper, WithoutATableOrASetNothingCountsAndNothingBreaks) {
    counterTable = nullptr;
    tunnelIs(5, {1});
    publish();
    startCounters();
    settle();
    EXPECT_TRUE(traces.has("Dont have valid counters for counterIndex 422233939902464"));
    flattenFecSet = nullptr;
    startCounters();
    counters->handleFlattenFecSetFecUpdates(tunnelFec(5));
    settle();
    EXPECT_THAT(passed, IsEmpty());
}

TEST_P(CountersMapper, AnIndexThatNoTunnelCanHaveRaisesTheRangeError) {
    exported();
    for (const std::uint32_t highWord : {0x40000U, UINT32_MAX}) {
        const CounterIndex index = FlexCounters::makeCounterIndex(highWord, 7);
        try {
            counters->handleCounterUpdates(index);
            FAIL();
        } catch (const Vel::RangeError& error) { EXPECT_STREQ(error.what(), kRangeError); }
        EXPECT_FALSE(counters->backlogHas(index));
    }
    EXPECT_NO_THROW(counters->handleCounterUpdates(FlexCounters::makeCounterIndex(0x3FFFF, 7)));
}

TEST_P(CountersMapper, ARowThatRaisesTheRangeErrorCostsOnlyItself) {
    exported();
    counterIs(7, 1, 1);
    counterIs(beyondTunnels(), {2, 2});
    counterIs(tunnelIndex(5), {3, 3});
    counterIs(8, 4, 4);
    tunnelIs(5, {1}, 100);
    publish();
    EXPECT_THAT(passed,
                testing::UnorderedElementsAre(Passed(7, 1, 1), Passed(8, 4, 4), Passed(100, 3, 3)));
    EXPECT_EQ(traces.count(std::string{"a sink threw: "} + kRangeError), 1U) << "by the pump";
    EXPECT_EQ(reader->sinkFailures(), 1U);
}

TEST_P(CountersMapper, AnElementThatRaisesTheRangeErrorCostsOnlyItself) {
    exported();
    counterIs(7, 1, 1);
    counters->backlogIs(beyondTunnels());
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(7, 1, 1)));
    EXPECT_TRUE(traces.has(std::string{"CountersMapperSmTask: element failed: "} + kRangeError));
    EXPECT_EQ(counters->failedElements(), 1U);
    EXPECT_TRUE(counters->backlogEmpty());
}

TEST_P(CountersMapper, CountersBeforeTheirNextHopComeWithTheNextRewrite) {
    exported();
    counterIs(9, 5, 6);
    publish();
    countedNextHopIs(9);
    publish();
    EXPECT_EQ(shown(9), nullptr);
    counterIs(9, 5, 6);
    publish();
    EXPECT_EQ(packets(9), 5U);
}

TEST_P(CountersMapper, CountersAfterTheirNextHopLeftFeedNothing) {
    exported();
    nextHopDel(7);
    counterKeyDel(nhgeck(7));
    publish();
    counterIs(7, 5, 6);
    publish();
    EXPECT_THAT(passed, IsEmpty());
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
}

TEST_P(CountersMapper, ACounterWhoseIndexIsInvalidNowFeedsNothing) {
    exported();
    counterIs(7, 1, 1);
    publish();
    counterKeyIs(nhgeck(7), 0);
    publish();
    passed.clear();
    counterIs(7, 5, 6);
    publish();
    EXPECT_THAT(passed, IsEmpty());
    EXPECT_EQ(shown(7), nullptr);
}

TEST_P(CountersMapper, WhileTheExportIsOffTunnelsAreSharedOutAndNobodyTakesIt) {
    exported();
    sut->hasNotificationActiveIs(false);
    sut->handleCleanup();
    sut = nullptr;
    tunnelIs(5, {1}, 7);
    counterIs(tunnelIndex(5), {5, 6});
    counterIs(7, 1, 1);
    publish();
    EXPECT_THAT(passed, ElementsAre(Passed(7, 5, 6))) << "entries of groups are linked no more";
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
    start();
    settle();
    counterIs(8, 2, 2);
    publish();
    EXPECT_EQ(packets(8), 2U);
}

TEST_P(CountersMapper, NextHopsAreMappedBeforeCountersAreWorkedOut) {
    publish();
    start();
    startCounters();
    countedNextHopIs(7);
    counterTableIs();
    publish();
    std::vector<std::string> order;
    const auto a = nextHopSet->onNextHop().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("next hop"); });
    const auto b = pelOcFecExportData->onNhCountersUpdate().subscribe(
        [&](const NhCounters&) { order.emplace_back("counters"); });
    counterIs(7, 1, 1);
    for (std::uint64_t id = 20; id < 24; ++id) { nextHopIs(id); }
    publish();
    EXPECT_THAT(order, ElementsAre("next hop", "next hop", "next hop", "next hop", "counters"));
}

TEST_P(CountersMapper, TheBacklogCanBeSetAndEmptiedByHand) {
    startCounters();
    counters->backlogIs(CounterIndex{1});
    counters->backlogIs(CounterIndex{2});
    counters->backlogDel(CounterIndex{1});
    EXPECT_FALSE(counters->backlogHas(CounterIndex{1}));
    EXPECT_TRUE(counters->backlogHas(CounterIndex{2}));
    counters->backlogDelAll();
    EXPECT_TRUE(counters->backlogEmpty());
    counters->handleCleanup();
}

TEST_P(CountersMapper, AYieldedWalkResumesAtItsBookmark) {
    counterTableIs();
    for (std::uint64_t id = 1; id <= 20; ++id) { countedNextHopIs(id); }
    publish();
    start();
    startCounters();
    settle();
    const auto before = counters->walkStatistics().runs;
    for (std::uint64_t id = 1; id <= 20; ++id) { counterIs(id, id, 0); }
    publish();
    EXPECT_EQ(passed.size(), 20U);
    EXPECT_EQ(counters->walkStatistics().runs - before, GetParam() == Yield::always ? 20U : 1U);
    EXPECT_EQ(counters->backlogBookmark(), CounterIndex{20});
}

TEST_P(CountersMapper, MessagesCarryTheFunctionNamesAndLevelsOfTheirSteps) {
    exported();
    tunnelIs(5, {1}, 7);
    counterIs(tunnelIndex(5), {5, 6});
    counterIs(7, 1, 1);
    publish();
    counterIs(7, 0, 0);
    publish();
    using Where = std::pair<std::string, int>;
    std::map<std::string, Where> seen;
    for (const Blink::Message& message : traces.messages()) {
        if (message.handle == "PelCountersMapperSm") {
            seen[message.text] = {message.function, message.level};
        }
    }
    EXPECT_EQ(seen["Starting"], Where("handleInitialized", 9));
    EXPECT_EQ(seen["StashMountGroup ready: true"], Where("handleStashReady", 9));
    EXPECT_EQ(seen["counterIndex 7 pick 2:7"], Where("handleCounterUpdates", 9));
    EXPECT_EQ(seen["fecId " + std::to_string(tunnelFec(5).value())],
              Where("handleFlattenFecSetFecUpdates", 9));
    EXPECT_EQ(seen["counters to process for the counterIndex 7 pick 2:7"],
              Where("backlogProcessElem", 9));
    EXPECT_EQ(seen["Update NHG NextHop Counters"], Where("processNHGCounterUpdate", 9));
    EXPECT_EQ(seen["Dont have valid counters for counterIndex 7"],
              Where("processNHGCounterUpdate", 9));
    EXPECT_EQ(seen["Update nhCounters ( pkts 1, octets 1 )  collection nhId 7"],
              Where("processNHGCounterUpdate", 7));
    EXPECT_EQ(seen["Update NextHop Counters for tunnelId 98309"],
              Where("processIpInIpTunnelCounterUpdate", 9));
    EXPECT_EQ(seen["Update nhCounters collection nhId 7 with pkts 5 octets 6"],
              Where("processIpInIpTunnelCounterUpdate", 7));
}

}  // namespace
}  // namespace Pel::Oc
