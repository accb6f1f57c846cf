#include "PelOpenConfig/PelNexthopGroupMapperSm.h"

#include "PelOpenConfig/test/ExportFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

class GroupMapperFixture : public ExportFixture {
protected:
    void start() {
        sut = nexthopGroupMapperSmFactory(scheduler,
                                          stashMountGroup,
                                          flattenFecSet,
                                          flattenFecSetReadyStatus,
                                          groups,
                                          fecReadyState,
                                          anchorValidatorCtx);
    }
    const OcApi::NextHopGroup* group(std::uint64_t id) const {
        return groups->nextHopGroup(OcApi::NextHopGroupId{id});
    }
    std::vector<std::string> texts() const { return traces.texts("PelNexthopGroupMapperSm"); }

    Vel::Ref<OcApi::NextHopGroupContainer> groups =
        Vel::make<OcApi::NextHopGroupContainer>("nextHopGroups");
    Vel::Ref<NexthopGroupMapperSm> sut;
};

using NexthopGroupMapper = UnderBothPolicies<GroupMapperFixture>;
INSTANTIATE_TEST_SUITE_P(,
                         NexthopGroupMapper,
                         testing::Values(Yield::never, Yield::always),
                         yieldName);

TEST_P(NexthopGroupMapper, InitialisationStartsThenAsksTheStash) {
    start();
    EXPECT_THAT(texts(), ElementsAre("Starting", "StashMountGroup ready: false"));
    EXPECT_EQ(sut->walkStatistics().name, "NexthopGroupMapperSmTask");
    EXPECT_EQ(sut->walkStatistics().priority, 3);
}

TEST_P(NexthopGroupMapper, ATopFecBecomesAGroupWithWeightedMembers) {
    Stash::FlattenFec fec;
    fec.nextHopIs({nh(9), 1});
    fec.nextHopIs({nh(7), 3});
    fecIs(41, fec);
    publish();
    start();
    EXPECT_EQ(groups->size(), 0U) << "only the walk maps";
    settle();
    ASSERT_NE(group(41), nullptr);
    EXPECT_EQ(group(41)->id.value(), 41U);
    ASSERT_EQ(group(41)->nextHops.size(), 2U);
    EXPECT_EQ(group(41)->nextHops.nextHopInGroup(OcApi::NextHopIndex{7})->weight, 3U);
    EXPECT_EQ(group(41)->nextHops.nextHopInGroup(OcApi::NextHopIndex{9})->weight, 1U);
    EXPECT_TRUE(traces.has("Added"));
}

TEST_P(NexthopGroupMapper, WithoutProgrammedIdAndNameTheFieldsAreAbsent) {
    fecIs(41);
    publish();
    start();
    settle();
    EXPECT_EQ(group(41)->programmedId, std::nullopt);
    EXPECT_EQ(group(41)->name, std::nullopt);
    EXPECT_EQ(group(41)->groupAttribute, 0xFF);
    EXPECT_EQ(group(41)->secondFlag, 0xFF);
}

TEST_P(NexthopGroupMapper, ProgrammedIdNameAttributeAndSecondFlagAreCopied) {
    Stash::FlattenFec fec;
    fec.nexthopGroupNameIs("gold", 3);
    fecIs(41, fec, {{}, 1234, true, true});
    publish();
    start();
    settle();
    EXPECT_EQ(group(41)->programmedId, 1234U);
    EXPECT_EQ(group(41)->name, "gold");
    EXPECT_EQ(group(41)->groupAttribute, 3);
    EXPECT_EQ(group(41)->secondFlag, 0x01);
    EXPECT_TRUE(group(41)->nextHops.empty()) << "no next hops: a group with an empty set";
}

TEST_P(NexthopGroupMapper, AnAttributeWithoutANameIsNotShown) {
    Stash::FlattenFec fec;
    fec.nexthopGroupNameIs("", 3);
    fecIs(41, fec);
    publish();
    start();
    settle();
    EXPECT_EQ(group(41)->groupAttribute, 0xFF);
}

TEST_P(NexthopGroupMapper, AMemberThatOccursTwiceHasTheWeightOfItsLastOccurrence) {
    Stash::FlattenFec fec;
    fec.nextHopIs({nh(7), 3});
    fec.nextHopIs({nh(7), 5});
    fecIs(41, fec);
    publish();
    start();
    settle();
    ASSERT_EQ(group(41)->nextHops.size(), 1U);
    EXPECT_EQ(group(41)->nextHops.begin()->weight, 5U);
}

TEST_P(NexthopGroupMapper, ABottomFecIsTracedAndGivesNoGroup) {
    fecIs(41, Stash::FlattenFec{}, {{}, 5, false, false});
    publish();
    start();
    settle();
    EXPECT_TRUE(traces.has("Do not process bottom fecId 41"));
    EXPECT_EQ(group(41), nullptr);
}

TEST_P(NexthopGroupMapper, AFecThatGivesNoGroupIsToldAsProcessedSoThatNobodyWaitsForIt) {
    std::vector<std::uint64_t> processed;
    const auto subscription = groups->onProcessed().subscribe(
        [&processed](const OcApi::NextHopGroupId& id) { processed.push_back(id.value()); });
    fecIs(41, Stash::FlattenFec{}, {{}, 5, false, false});
    publish();
    start();
    EXPECT_TRUE(groups->pending(OcApi::NextHopGroupId{41}));
    settle();
    EXPECT_THAT(processed, ElementsAre(41U));
    EXPECT_FALSE(groups->pending(OcApi::NextHopGroupId{41}));
}

TEST_P(NexthopGroupMapper, AFecThatIsInTheStoreButNotToldYetIsStillToBeConsidered) {
    start();
    publish();
    fecIs(41);
    commit();
    EXPECT_TRUE(groups->pending(OcApi::NextHopGroupId{41}));
    EXPECT_FALSE(groups->pending(OcApi::NextHopGroupId{42}));
    settleAfterASecond();
    EXPECT_FALSE(groups->pending(OcApi::NextHopGroupId{41}));
}

TEST_P(NexthopGroupMapper, AFecThatHasLeftTheStoreButIsNotToldYetIsStillToBeConsidered) {
    start();
    fecIs(41);
    publish();
    settle();
    ASSERT_NE(group(41), nullptr);
    fecs.erase(FecId{41});
    commit();
    EXPECT_TRUE(groups->pending(OcApi::NextHopGroupId{41}));
    settleAfterASecond();
    EXPECT_FALSE(groups->pending(OcApi::NextHopGroupId{41}));
    EXPECT_EQ(group(41), nullptr);
}

TEST_P(NexthopGroupMapper, AFecThatTurnsFromTopToBottomKeepsItsGroup) {
    fecIs(41);
    publish();
    start();
    settle();
    fecIs(41, Stash::FlattenFec{}, {{}, 5, false, false});
    publish();
    ASSERT_NE(group(41), nullptr);
    EXPECT_EQ(group(41)->nextHops.size(), 1U);
    fecs.erase(FecId{41});
    publish();
    EXPECT_EQ(group(41), nullptr);
}

TEST_P(NexthopGroupMapper, AChangedFecReplacesItsGroupWhole) {
    Stash::FlattenFec before;
    before.nextHopIs({nh(7), 1});
    before.nextHopIs({nh(8), 1});
    fecIs(41, before);
    publish();
    start();
    settle();
    Stash::FlattenFec after;
    after.nextHopIs({nh(8), 2});
    fecIs(41, after);
    publish();
    EXPECT_TRUE(traces.has("fecId 41"));
    ASSERT_EQ(group(41)->nextHops.size(), 1U);
    EXPECT_EQ(group(41)->nextHops.nextHopInGroup(OcApi::NextHopIndex{8})->weight, 2U);
}

TEST_P(NexthopGroupMapper, ADeletedFecLosesItsGroup) {
    fecIs(41);
    publish();
    start();
    settle();
    fecs.erase(FecId{41});
    publish();
    EXPECT_EQ(group(41), nullptr);
    EXPECT_TRUE(traces.has("Deleted"));
}

TEST_P(NexthopGroupMapper, AGroupWhoseFecLeftUnseenIsDeletedByTheSweep) {
    OcApi::NextHopGroup stale;
    stale.id = OcApi::NextHopGroupId{99};
    groups->nextHopGroupIs(stale);
    fecIs(41);
    publish();
    start();
    settle();
    EXPECT_EQ(group(99), nullptr);
    EXPECT_NE(group(41), nullptr);
    EXPECT_EQ(traces.count("fecId to process 41"), 1U) << "FEC and group are one element";
}

TEST_P(NexthopGroupMapper, AnEntryThatDoesNotVerifyReadsAsADeletion) {
    fecIs(41);
    publish();
    start();
    settle();
    writer->put(fecs.table(), Store::KeyCodec<FecId>::encode(FecId{41}), "bad");
    publish();
    EXPECT_EQ(group(41), nullptr);
}

TEST_P(NexthopGroupMapper, AnUnreadableFecKeepsItsEarlierGroup) {
    fecIs(41);
    publish();
    start();
    settle();
    fecs.set(FecId{41}, {{}, 0, true, false}, "rubbish");
    publish();
    EXPECT_TRUE(traces.has("Hit CorruptionDetectedException destashing writerFec"));
    EXPECT_TRUE(traces.has("fec is null"));
    EXPECT_NE(group(41), nullptr);
}

TEST_P(NexthopGroupMapper, AnElementWhileTheStashIsNotReadyIsDroppedWithItsTrace) {
    start();
    sut->handleFec(FecId{41});
    settle();
    EXPECT_TRUE(traces.has("Stash not ready"));
    EXPECT_TRUE(sut->backlogEmpty());
}

TEST_P(NexthopGroupMapper, FecReadyWhileTheBacklogHoldsElementsLeavesTheWalkToSetNhgReady) {
    fecIs(41);
    publish();
    start();
    fecReadyIs(true);
    EXPECT_FALSE(fecReadyState->nhgReady());
    settle();
    EXPECT_TRUE(fecReadyState->nhgReady());
    EXPECT_TRUE(traces.has("FlattenFecSet fecReady: true"));
    fecReadyIs(false);
    EXPECT_TRUE(fecReadyState->nhgReady()) << "never falls here";
}

TEST_P(NexthopGroupMapper, FecReadyFalseLeavesNhgReadyFalse) {
    fecIs(41);
    publish();
    start();
    settle();
    EXPECT_FALSE(fecReadyState->nhgReady());
    EXPECT_TRUE(traces.has("FlattenFecSet fecReady: false"));
}

TEST_P(NexthopGroupMapper, BurstsOfOneFecAreOneMapping) {
    fecIs(41);
    publish();
    start();
    settle();
    const TestSupport::TraceCapture later;
    for (int i = 0; i < 5; ++i) { sut->handleFec(FecId{41}); }
    settle();
    EXPECT_EQ(later.count("fecId to process 41"), 1U);
}

TEST_P(NexthopGroupMapper, TheBacklogCanBeSetAndEmptiedByHand) {
    start();
    sut->backlogIs(FecId{1});
    sut->backlogIs(FecId{2});
    sut->backlogDel(FecId{1});
    EXPECT_FALSE(sut->backlogHas(FecId{1}));
    EXPECT_TRUE(sut->backlogHas(FecId{2}));
    sut->backlogDelAll();
    EXPECT_TRUE(sut->backlogEmpty());
}

TEST_P(NexthopGroupMapper, CleanupDeletesEveryGroup) {
    fecIs(41);
    fecIs(42);
    publish();
    start();
    settle();
    sut->handleCleanup();
    EXPECT_TRUE(traces.has("Cleanup"));
    EXPECT_EQ(groups->size(), 0U);
}

TEST_P(NexthopGroupMapper, MessagesCarryTheFunctionNamesOfTheirHandlers) {
    fecIs(41);
    publish();
    start();
    settle();
    fecs.erase(FecId{41});
    publish();
    std::map<std::string, std::string> seen;
    for (const Blink::Message& message : traces.messages()) {
        if (message.handle == "PelNexthopGroupMapperSm") { seen[message.text] = message.function; }
    }
    EXPECT_EQ(seen["Starting"], "handleInitialized");
    EXPECT_EQ(seen["StashMountGroup ready: true"], "handleStashReady");
    EXPECT_EQ(seen["fecId 41"], "handleFec");
    EXPECT_EQ(seen["FlattenFecSet fecReady: false"], "handleFecReady");
    EXPECT_EQ(seen["fecId to process 41"], "backlogProcessElem");
    EXPECT_EQ(seen["Added"], "backlogProcessElem");
    EXPECT_EQ(seen["Deleted"], "backlogProcessElem");
}

}  // namespace
}  // namespace Pel::Oc
