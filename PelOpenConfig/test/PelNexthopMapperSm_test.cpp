#include "PelOpenConfig/PelNexthopMapperSm.h"

#include "PelOpenConfig/test/MapperFixture.h"
#include "test/support/AllocationCount.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

using NexthopMapper = UnderBothPolicies<MapperFixture>;
INSTANTIATE_TEST_SUITE_P(, NexthopMapper, testing::Values(Yield::never, Yield::always), yieldName);

TEST_P(NexthopMapper, InitialisationStartsThenEmptiesTheCountersMapThenAsksTheStash) {
    pelOcNextHopCountersMap->nhgeckToOcNextHopIdIs({NexthopGroupId{1}, NexthopGroupEntryIndex{2}});
    pelOcNextHopCountersMap->pickToOcNextHopIdsIs({});
    pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeckIs(nh(1));
    start();
    EXPECT_EQ(pelOcNextHopCountersMap->nhgeckToOcNextHopId().size(), 0U);
    EXPECT_EQ(pelOcNextHopCountersMap->pickToOcNextHopIds().size(), 0U);
    EXPECT_EQ(pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().size(), 0U);
    EXPECT_THAT(texts(), ElementsAre("Starting", "StashMountGroup ready: false"));
}

TEST_P(NexthopMapper, StashReadyEnqueuesEveryNextHopInTheOrderOfTheSet) {
    start();
    settle();
    EXPECT_EQ(nextHopSet->size(), 0U);
    for (const std::uint64_t id : {3U, 1U, 2U}) { nextHopIs(id); }
    publish();
    EXPECT_EQ(nextHopSet->size(), 3U);
    std::vector<std::string> order;
    for (const auto& text : texts()) {
        if (text.starts_with("nhId to process")) { order.push_back(text); }
    }
    EXPECT_THAT(order, ElementsAre("nhId to process 1", "nhId to process 2", "nhId to process 3"));
    EXPECT_TRUE(traces.has("StashMountGroup ready: true"));
}

TEST_P(NexthopMapper, ANextHopPresentBeforeTheMachineIsMapped) {
    nextHopIs(7);
    publish();
    start();
    EXPECT_EQ(nextHopSet->size(), 0U) << "only the walk maps";
    settle();
    ASSERT_NE(entry(7), nullptr);
    EXPECT_EQ(entry(7)->index.value(), 7U);
    EXPECT_EQ(entry(7)->interface.stringValue(), "eth1");
    EXPECT_EQ(entry(7)->subinterface, std::nullopt);
    EXPECT_EQ(entry(7)->ipAddress.stringValue(), "10.0.0.1");
    EXPECT_EQ(entry(7)->macAddress.stringValue(), "00:1c:73:00:00:01");
    EXPECT_TRUE(entry(7)->pushedMplsLabelStack.empty());
    EXPECT_TRUE(entry(7)->encapHeaders.empty());
    EXPECT_TRUE(traces.has("Added"));
}

TEST_P(NexthopMapper, TheWalkTaskHasItsNameAndPriority) {
    start();
    EXPECT_EQ(sut->walkStatistics().name, "NexthopMapperSmTask");
    EXPECT_EQ(sut->walkStatistics().priority, 3);
}

TEST_P(NexthopMapper, AYieldedWalkResumesAtItsBookmarkAndMapsEachOnce) {
    for (std::uint64_t id = 1; id <= 20; ++id) { nextHopIs(id); }
    publish();
    start();
    settle();
    EXPECT_EQ(nextHopSet->size(), 20U);
    EXPECT_EQ(sut->walkStatistics().runs, GetParam() == Yield::always ? 20U : 1U);
    for (std::uint64_t id = 1; id <= 20; ++id) {
        EXPECT_EQ(traces.count("nhId to process " + std::to_string(id)), 1U);
    }
    EXPECT_EQ(sut->backlogBookmark(), nh(20));
}

TEST_P(NexthopMapper, AChangedNextHopReplacesItsEntry) {
    nextHopIs(7, "eth1");
    publish();
    start();
    settle();
    nextHopIs(7, "eth2");
    publish();
    EXPECT_EQ(entry(7)->interface.stringValue(), "eth2");
    EXPECT_TRUE(traces.has("nhId 7"));
}

TEST_P(NexthopMapper, ManyChangesBeforeTheWalkAreOneMapping) {
    nextHopIs(7);
    publish();
    start();
    settle();
    const TestSupport::TraceCapture later;
    for (int i = 0; i < 5; ++i) { sut->handleNextHop(nh(7)); }
    settle();
    EXPECT_EQ(later.count("nhId 7"), 5U);
    EXPECT_EQ(later.count("nhId to process 7"), 1U);
}

TEST_P(NexthopMapper, AddedAndDeletedBeforeTheWalkIsProcessedOnceAsADeletion) {
    nextHopIs(1);
    publish();
    start();
    settle();
    nextHopCounterSet->nextHopCounterIs({OcApi::NextHopIndex{7}, 1, 2});
    const TestSupport::TraceCapture later;
    sut->handleNextHop(nh(7));
    sut->handleNextHop(nh(7));
    settle();
    EXPECT_EQ(later.count("nhId to process 7"), 1U);
    EXPECT_EQ(later.count("Deleted"), 1U);
    EXPECT_EQ(later.count("Added"), 0U);
    EXPECT_EQ(entry(7), nullptr);
    EXPECT_EQ(nextHopCounterSet->size(), 0U);
    EXPECT_THAT(processed, ElementsAre(7)) << "whatever waited for it waits no longer";
}

TEST_P(NexthopMapper, ANextHopThatIsInTheStoreButNotToldYetIsStillToBeConsidered) {
    start();
    publish();
    nextHopIs(7);
    commit();
    EXPECT_TRUE(nextHopSet->pending(OcApi::NextHopIndex{7}));
    EXPECT_FALSE(nextHopSet->pending(OcApi::NextHopIndex{8}));
    settleAfterASecond();
    EXPECT_FALSE(nextHopSet->pending(OcApi::NextHopIndex{7}));
}

TEST_P(NexthopMapper, ADeletedNextHopLosesItsCountersThenItsEntry) {
    nextHopIs(7);
    publish();
    start();
    settle();
    nextHopCounterSet->nextHopCounterIs({OcApi::NextHopIndex{7}, 1, 2});
    std::vector<std::string> order;
    const auto a = nextHopCounterSet->onNextHopCounter().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("counters"); });
    const auto b = nextHopSet->onNextHop().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("entry"); });
    nextHopDel(7);
    publish();
    EXPECT_THAT(order, ElementsAre("counters", "entry"));
    EXPECT_EQ(entry(7), nullptr);
    EXPECT_TRUE(traces.has("Deleted"));
    EXPECT_THAT(processed, ElementsAre());
}

TEST_P(NexthopMapper, AnElementWhileTheStashIsNotReadyIsDroppedWithItsTrace) {
    start();
    sut->handleNextHop(nh(7));
    settle();
    EXPECT_TRUE(traces.has("Stash not ready"));
    EXPECT_TRUE(sut->backlogEmpty());
    EXPECT_EQ(nextHopSet->size(), 0U);
}

TEST_P(NexthopMapper, FecReadyWhileTheBacklogHoldsElementsLeavesTheWalkToSetNhReady) {
    nextHopIs(7);
    publish();
    start();
    fecReadyIs(true);
    EXPECT_TRUE(traces.has("FlattenFecSet fecReady: true"));
    EXPECT_FALSE(fecReadyState->nhReady());
    settle();
    EXPECT_TRUE(fecReadyState->nhReady());
}

TEST_P(NexthopMapper, NhReadyRisesOnlyAfterTheLastNextHopIsMapped) {
    for (std::uint64_t id = 1; id <= 5; ++id) { nextHopIs(id); }
    publish();
    fecReadyIs(true);
    std::size_t mappedThen = 0;
    const auto watch =
        fecReadyState->onNhReady().subscribe([&] { mappedThen = nextHopSet->size(); });
    start();
    settle();
    EXPECT_EQ(mappedThen, 5U);
}

TEST_P(NexthopMapper, FecReadyFalseWithAnEmptyBacklogLeavesNhReadyFalse) {
    nextHopIs(7);
    publish();
    start();
    settle();
    EXPECT_FALSE(fecReadyState->nhReady());
    EXPECT_TRUE(traces.has("FlattenFecSet fecReady: false"));
    fecReadyIs(true);
    EXPECT_TRUE(fecReadyState->nhReady());
}

TEST_P(NexthopMapper, NhReadyNeverFalls) {
    start();
    fecReadyIs(true);
    fecReadyIs(false);
    EXPECT_TRUE(fecReadyState->nhReady());
}

TEST_P(NexthopMapper, AnEmptySetBecomesReadyByTheWalkOfStashReady) {
    fecReadyIs(true);
    publish();
    start();
    EXPECT_FALSE(fecReadyState->nhReady());
    settle();
    EXPECT_TRUE(fecReadyState->nhReady());
}

TEST_P(NexthopMapper, ASubinterfaceIsExportedAsParentAndNumber) {
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    nextHop.interface = Nexo::IntfId{"vlan100", "eth3", 100};
    nextHopIs(7, nextHop);
    publish();
    start();
    settle();
    EXPECT_EQ(entry(7)->interface, Nexo::IntfId{"eth3"});
    EXPECT_EQ(entry(7)->subinterface, 100U);
}

TEST_P(NexthopMapper, AnAllZeroAddressOfEitherFamilyAndAnAllZeroMacAreLeftOut) {
    for (const std::string& zero : {std::string{"0.0.0.0"}, std::string{"::"}}) {
        Stash::FlattenFecNextHop nextHop;
        nextHop.interface = Nexo::IntfId{"eth1"};
        nextHop.address = *Nexo::IpGenAddr::parse(zero);
        nextHopIs(7, nextHop);
        publish();
        if (!sut) { start(); }
        settle();
        EXPECT_EQ(entry(7)->ipAddress.family(), Nexo::AddressFamily::none) << zero;
        EXPECT_TRUE(entry(7)->macAddress.isZero());
    }
}

TEST_P(NexthopMapper, FourteenLabelsArePushedInStackOrder) {
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    for (std::uint32_t i = 0; i < 14; ++i) { nextHop.labels.push(Nexo::MplsLabel{100 + i}); }
    nextHopIs(7, nextHop);
    publish();
    start();
    settle();
    ASSERT_EQ(entry(7)->pushedMplsLabelStack.labels(), 14U);
    EXPECT_EQ(entry(7)->pushedMplsLabelStack.label(Nexo::MplsStackEntryIndex{0}).value(), 100U);
    EXPECT_EQ(entry(7)->pushedMplsLabelStack.label(Nexo::MplsStackEntryIndex{13}).value(), 113U);
}

TEST_P(NexthopMapper, FifteenLabelsRaiseTheRangeErrorAndTheWalkGoesOn) {
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    for (std::uint32_t i = 0; i < 15; ++i) { nextHop.labels.push(Nexo::MplsLabel{100 + i}); }
    nextHopIs(7, nextHop);
    nextHopIs(8);
    publish();
    fecReadyIs(true);
    start();
    settle();
    EXPECT_EQ(sut->failedElements(), 1U);
    EXPECT_TRUE(traces.has(
        "NexthopMapperSmTask: element failed: Nexo::MplsStackEntryIndex::value < "
        "Nexo::MplsStackEntryIndex::min or > Nexo::MplsStackEntryIndex::nullValue not allowed"));
    EXPECT_EQ(entry(7), nullptr);
    EXPECT_NE(entry(8), nullptr);
    EXPECT_THAT(processed, ElementsAre(7));
    EXPECT_TRUE(fecReadyState->nhReady());
}

TEST_P(NexthopMapper, AnUnreadableNextHopLeavesItsEarlierEntryAndIsToldAsProcessed) {
    nextHopIs(7);
    publish();
    start();
    settle();
    nextHopContentIs(7, "rubbish");
    publish();
    EXPECT_TRUE(traces.has("Hit CorruptionDetectedException destashing writerNextHop"));
    EXPECT_TRUE(traces.has("Nexthop null"));
    ASSERT_NE(entry(7), nullptr);
    EXPECT_EQ(entry(7)->interface.stringValue(), "eth1");
    EXPECT_THAT(processed, ElementsAre(7));
}

TEST_P(NexthopMapper, AnEntryThatDoesNotVerifyIsNotMappedAndNotDeleted) {
    nextHopIs(7);
    publish();
    start();
    settle();
    writer->put(nextHops.table(), Store::KeyCodec<Stash::OcNextHopIndex>::encode(nh(7)), "bad");
    publish();
    EXPECT_NE(entry(7), nullptr);
    EXPECT_TRUE(traces.has("Nexthop null"));
    EXPECT_FALSE(traces.has("Deleted"));
}

TEST_P(NexthopMapper, VrfIdsBecomeNetworkInstanceNames) {
    vrfIs(10, "red");
    vrfIs(11, "blue");
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    nextHop.decapVrfId = Vrf::VrfId{10};
    nextHop.fallbackVrfId = Vrf::VrfId{11};
    nextHop.decapHeader = 5;
    nextHopIs(7, nextHop);
    publish();
    start();
    settle();
    EXPECT_EQ(entry(7)->decapNetworkInstance.stringValue(), "red");
    EXPECT_EQ(entry(7)->fallbackNetworkInstance.stringValue(), "blue");
    EXPECT_EQ(entry(7)->decapsulateHeader, OcApi::EncapHeaderType::udpv4);
}

TEST_P(NexthopMapper, AnUnknownVrfIdIsTracedAndTheRestIsWritten) {
    vrfIs(11, "blue");
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    nextHop.decapVrfId = Vrf::VrfId{10};
    nextHop.fallbackVrfId = Vrf::VrfId{11};
    nextHopIs(7, nextHop);
    publish();
    start();
    settle();
    EXPECT_EQ(traces.count("No entry for 10 in vrfIdToName map"), 1U);
    EXPECT_TRUE(entry(7)->decapNetworkInstance.empty());
    EXPECT_EQ(entry(7)->fallbackNetworkInstance.stringValue(), "blue");
    EXPECT_EQ(entry(7)->ipAddress.stringValue(), "10.0.0.1");
}

TEST_P(NexthopMapper, NoVrfIdIsNoUnknownVrfId) {
    nextHopIs(7);
    publish();
    start();
    settle();
    for (const std::string& text : texts()) { EXPECT_FALSE(text.starts_with("No entry for")); }
}

TEST_P(NexthopMapper, CleanupEmptiesEntriesAndCountersMapButNotTheCounters) {
    nextHopIs(7);
    publish();
    start();
    settle();
    nextHopCounterSet->nextHopCounterIs({OcApi::NextHopIndex{7}, 1, 2});
    pelOcNextHopCountersMap->nhgeckToOcNextHopIdIs({NexthopGroupId{1}, NexthopGroupEntryIndex{2}});
    sut->handleCleanup();
    EXPECT_TRUE(traces.has("Cleanup"));
    EXPECT_EQ(nextHopSet->size(), 0U);
    EXPECT_EQ(pelOcNextHopCountersMap->nhgeckToOcNextHopId().size(), 0U);
    EXPECT_EQ(nextHopCounterSet->size(), 1U);
}

TEST_P(NexthopMapper, MessagesCarryTheFunctionNamesAndLevelsOfTheirHandlers) {
    nextHopIs(7);
    publish();
    start();
    fecReadyIs(true);
    settle();
    nextHopDel(7);
    publish();
    sut->handleCleanup();
    std::map<std::string, std::pair<std::string, int>> seen;
    for (const Blink::Message& message : traces.messages()) {
        if (message.handle == "PelNexthopMapperSm") {
            seen[message.text] = {message.function, message.level};
        }
    }
    using Where = std::pair<std::string, int>;
    EXPECT_EQ(seen["Starting"], (Where{"handleInitialized", 9}));
    EXPECT_EQ(seen["StashMountGroup ready: true"], (Where{"handleStashReady", 9}));
    EXPECT_EQ(seen["nhId 7"], (Where{"handleNextHop", 9}));
    EXPECT_EQ(seen["FlattenFecSet fecReady: true"], (Where{"handleFecReady", 9}));
    EXPECT_EQ(seen["nhId to process 7"], (Where{"backlogProcessElem", 9}));
    EXPECT_EQ(seen["Added"], (Where{"backlogProcessElem", 7}));
    EXPECT_EQ(seen["Deleted"], (Where{"backlogProcessElem", 7}));
    EXPECT_EQ(seen["Cleanup"], (Where{"handleCleanup", 9}));
}

using NexthopMapperAllocations = MapperFixture;

TEST_F(NexthopMapperAllocations, AnElementAllocatesOnlyItsRecordAndItsEntry) {
    constexpr std::uint64_t kCount = 500;
    for (std::uint64_t id = 1; id <= kCount; ++id) { nextHopIs(id); }
    publish();
    start();
    settle();
    sut->handleStashReady();
    const TestSupport::AllocationCount count;
    settle();
    // The record out of the stash, the entry, and the bytes of its counter's key; and a few per walk.
    EXPECT_LE(count.since(), kCount * 3 + 50);
    RecordProperty("allocationsPerElement", std::to_string(double(count.since()) / kCount));
}

TEST(NexthopMapperToggles, AreOnByDefault) {
    EXPECT_TRUE(toggleOCNextHopAftVxlanEncapHeaderEnabled());
    EXPECT_TRUE(toggleOCNhDecapAndFallbackVrfEnabled());
    EXPECT_TRUE(toggleOCNHGContentStreamingTtlTosEnabled());
}

}  // namespace
}  // namespace Pel::Oc
