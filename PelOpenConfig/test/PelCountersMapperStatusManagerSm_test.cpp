#include "PelOpenConfig/PelCountersMapperStatusManagerSm.h"

#include <filesystem>

#include "PelOpenConfig/test/CountersFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;

constexpr const char* kPath = "flexCounters/counterTable/Nexthop/4294967295";

class StatusManager : public MapperFixture {
protected:
    ~StatusManager() override { manager = nullptr; }
    StatusManager() = default;
    StatusManager(const StatusManager&) = delete;
    StatusManager& operator=(const StatusManager&) = delete;

    void create() {
        manager = countersMapperStatusManagerSmFactory(entityManager,
                                                       scheduler,
                                                       stashMountGroup,
                                                       flattenFecSet,
                                                       pelOcFecExportData,
                                                       Vel::Ref<const Tolo::Config>{},
                                                       anchorValidatorCtx,
                                                       pelOcNextHopCountersMap);
    }
    Vel::Ref<FlexCounters::CounterTable> table() const {
        return mesa->entity<FlexCounters::CounterTable>(kPath);
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const Blink::Message& message : traces.messages()) {
            if (message.handle.starts_with("PelCounters")) {
                all.push_back(message.function + ": " + message.text);
            }
        }
        return all;
    }
    void counterIs(std::uint64_t index, std::uint64_t packets) {
        Mesa::TablePublisher<FlexCounters::CounterIndex, FlexCounters::MesaFlexCounter>{
            *writer, kPath, FlexCounters::CounterTable::kType}
            .set(FlexCounters::CounterIndex{index}, {packets, 1}, true);
    }
    std::uint64_t packets(std::uint64_t id) const {
        const auto* const counter = nextHopCounterSet->nextHopCounter(OcApi::NextHopIndex{id});
        return counter == nullptr ? 0 : counter->packetsForwarded;
    }

    Vel::Ref<Hubdb::EntityManager> entityManager =
        Vel::make<Hubdb::EntityManager>("PelOpenConfig", 1, scheduler, reader, makeReader(), mesa);
    Vel::Ref<CountersMapperStatusManagerSm> manager;
};

TEST_F(StatusManager, MountsTheTableAndThenCreatesTheMapper) {
    publish();
    create();
    EXPECT_NE(manager->mounter(), nullptr);
    EXPECT_EQ(manager->mounter()->shmemEntityManager(), mesa);
    EXPECT_EQ(manager->countersMapperSm(), nullptr) << "not before the mount is complete";
    settle();
    ASSERT_NE(manager->countersMapperSm(), nullptr);
    EXPECT_TRUE(manager->countersMapperSm()->initialized());
    EXPECT_THAT(texts(),
                ElementsAre("handleInitialized: Handle init",
                            "mountMesaTable: Start mounting",
                            std::string{"mountMesa: Mount the mesa "} + kPath + " table",
                            std::string{"mountsComplete: Mesa table "} + kPath + " mount complete",
                            "createSm: Create CounterMapperSm",
                            "handleInitialized: Starting",
                            "handleStashReady: StashMountGroup ready: true"));
}

TEST_F(StatusManager, ATableThatNobodyHasMadeYetIsMountedEmptyAndFillsLater) {
    nextHopIs(7);
    counterKeyIs(nhgeck(7), 70);
    publish();
    start();
    create();
    settle();
    ASSERT_NE(table(), nullptr);
    EXPECT_FALSE(table()->present());
    ASSERT_NE(manager->countersMapperSm(), nullptr);
    counterIs(70, 5);
    publish();
    EXPECT_EQ(packets(7), 5U);
}

TEST_F(StatusManager, CountersThatAreThereAtTheStartAreTakenIn) {
    nextHopIs(7);
    counterKeyIs(nhgeck(7), 70);
    counterIs(70, 5);
    publish();
    start();
    create();
    settle();
    EXPECT_EQ(packets(7), 5U);
}

TEST_F(StatusManager, AStoreThatTakesThePlaceOfTheOldOneIsReadLikeTheFirst) {
    for (const std::uint64_t id : {7U, 8U}) {
        nextHopIs(id);
        counterKeyIs(nhgeck(id), id);
        counterIs(id, id);
    }
    publish();
    start();
    create();
    settle();
    ASSERT_EQ(packets(8), 8U);

    writer.reset();
    std::filesystem::remove_all(options.directory);
    settleAfterASecond();
    EXPECT_FALSE(table()->present());
    EXPECT_EQ(packets(8), 8U) << "what was last known";
    writer = makeWriter();
    Stash::ContentPublisher newContents{*writer};
    Stash::CollectionPublisher<FecId, FlattenFecEntry> newFecs{
        *writer, newContents, "hardware/pel/ocAft/fec", FlattenFecSet::kFecType};
    Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> newNextHops{
        *writer, newContents, "hardware/pel/ocAft/nextHop", FlattenFecSet::kNextHopType};
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    newNextHops.set(nh(7),
                    {nh(7), nhgeck(7).nhgId, nhgeck(7).entryId, {}},
                    Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
    counterKeyIs(nhgeck(7), 9);
    counterIs(9, 90);
    publish();
    EXPECT_EQ(packets(7), 90U) << "over its new counter";
    EXPECT_EQ(packets(8), 0U);
    EXPECT_EQ(pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().size(), 1U);
    EXPECT_EQ(pelOcNextHopCountersMap->pickToOcNextHopIds().size(), 1U);
    EXPECT_EQ(pelOcNextHopCountersMap->nhgeckToOcNextHopId().size(), 1U);
}

TEST_F(StatusManager, OnCleanUpTheMapperGoesThenTheMountThenTheMounter) {
    publish();
    create();
    settle();
    const Vel::Ref<FlexCounters::CounterTable> mounted = table();
    manager->handleCleanup();
    EXPECT_EQ(manager->countersMapperSm(), nullptr);
    EXPECT_EQ(manager->mounter(), nullptr);
    EXPECT_EQ(table(), nullptr);
    EXPECT_TRUE(mounted.unique()) << "nobody reads it any more";
    EXPECT_EQ(texts().back(), std::string{"mountMesa: unmount the mesa "} + kPath + " table");
    manager->handleCleanup();
    EXPECT_EQ(traces.count(std::string{"unmount the mesa "} + kPath + " table"), 1U);
}

TEST_F(StatusManager, LetGoOfItCleansUp) {
    publish();
    create();
    settle();
    manager = nullptr;
    EXPECT_EQ(table(), nullptr);
}

TEST_F(StatusManager, LetGoOfBeforeItsMountIsCompleteItIsNeverTold) {
    publish();
    create();
    manager = nullptr;
    settle();
    EXPECT_FALSE(traces.has("Create CounterMapperSm"));
    EXPECT_EQ(table(), nullptr);
}

TEST_F(StatusManager, ASwitchedOffMapperHandsNothingOverOnceItIsReleased) {
    nextHopIs(7);
    counterKeyIs(nhgeck(7), 70);
    counterIs(70, 5);
    publish();
    start();
    create();
    settle();
    const Vel::Ref<CountersMapperSm> mapper = manager->countersMapperSm();
    manager->handleCleanup();
    EXPECT_FALSE(mapper->hasNotificationActive());
    counterIs(70, 6);
    publish();
    EXPECT_EQ(packets(7), 5U);
}

using StatusManagerDeathTest = StatusManager;

TEST_F(StatusManagerDeathTest, AFailedMountEndsTheProcess) {
    create();
    EXPECT_DEATH(manager->mounter()->doMountsComplete(Hubdb::mountFailure_, entityManager),
                 "mountStatus == Hubdb::mountSuccess_");
}

}  // namespace
}  // namespace Pel::Oc
