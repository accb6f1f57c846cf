#include "PelOpenConfig/PelAftExportRootSm.h"

#include <algorithm>

#include "PelOpenConfig/test/ExportFixture.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Route/RouteStatus.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Mesa/Publisher.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExportRoot : public ExportFixture {
protected:
    ExportRoot() {
        aftContainer->nextHopGroupsIs();
        aftContainer->nextHopsIs();
        aftContainer->fibReadyIs();
        aftContainer->nextHopCountersIs();
        Store::Options configurationOptions = options;
        configurationOptions.directory = dir.path() / "config";
        entityManager = Vel::make<Hubdb::EntityManager>(
            "agent",
            1,
            scheduler,
            reader,
            Vel::make<Store::Reader>(scheduler, configurationOptions),
            mesa);
    }
    void start() {
        sut = aftExportRootSmFactory(toloConfig,
                                     aftContainer,
                                     entityManager,
                                     scheduler,
                                     stashMountGroup,
                                     flattenFecSet,
                                     flattenFecSetReadyStatus,
                                     anchorValidatorCtx,
                                     pelOcFecExportData,
                                     pelOcNextHopCountersMap,
                                     nullptr,
                                     nullptr,
                                     fibReadyDir,
                                     nullptr);
    }
    /// The default VRF, declared ready, with its IPv4 table.
    void defaultVrfIs() {
        const auto ready = Vel::make<GatedReady::FibReady>(Vrf::kDefaultVrfName);
        ready->recordIs(Mesa::RecordCodec<ReadyRecord>::encode({true}));
        fibReadyDir->insert(ready);
        routes = std::make_unique<Routes>(
            *writer,
            Mesa::fibTableMountPath(Nexo::AddressFamily::ipv4, Vrf::kDefaultVrfName, "rib"),
            Mesa::Fib::RouteStatus::kType);
        publish();
    }
    /// "-" without a container, else IPv4's flag.
    std::string synced() const {
        const auto exportDir =
            entityManager->globalDir()->entityIs<Vel::Dir>("agent")->entityIs<Vel::Dir>(
                "AftExport");
        const auto container = exportDir->entityIs<Vel::Dir>("stateSynced")
                                   ->entity<OcApi::StateSyncedContainer>(Vrf::kDefaultVrfName);
        if (!container) { return "-"; }
        return container->ipv4Unicast() ? "1" : "0";
    }
    bool waits() const {
        const auto tasks = scheduler->tasks();
        return std::any_of(tasks.begin(), tasks.end(), [](const auto& task) {
            return task.name == "stateSyncedTimerTask-default";
        });
    }
    void enabledIs(bool enabled) {
        toloConfig->recordIs(Mesa::RecordCodec<Tolo::ConfigRecord>::encode({enabled}));
    }
    /// "handle: text" of these texts, in order.
    std::vector<std::string> milestones(const TestSupport::TraceCapture& from) const {
        std::vector<std::string> result;
        for (const Blink::Message& message : from.messages()) {
            if (message.text == "Enabled" || message.text == "Disabled" ||
                message.text == "Starting" || message.text == "Cleanup" ||
                message.text == "create local SMs" || message.text.starts_with("Cleanup of ") ||
                (message.handle == "PelStateSyncedSm" && message.function == "handleInitialized") ||
                message.text == "Line 25: from( this.deleting ):") {
                result.push_back(message.handle + ": " + message.text);
            }
        }
        return result;
    }
    void publishOne() {
        nextHopIs(7);
        Stash::FlattenFec fec;
        fec.nextHopIs({nh(7), 1});
        fecIs(41, fec);
        publish();
        fecReadyIs(true);
        settle();
    }

    Vel::Ref<Tolo::Config> toloConfig = Vel::make<Tolo::Config>("config");
    Vel::Ref<Hubdb::EntityManager> entityManager;
    Vel::Ref<Vel::Dir> fibReadyDir = Vel::make<Vel::Dir>("fibReady");
    using Routes = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    std::unique_ptr<Routes> routes;
    Vel::Ref<OcApi::AftContainer> aftContainer = Vel::make<OcApi::AftContainer>("aftContainer");
    Vel::Ref<AftExportRootSm> sut;
};

TEST_F(ExportRoot, EnabledAtTheStartCreatesTheMachinesInOrder) {
    enabledIs(true);
    const TestSupport::TraceCapture from;
    start();
    EXPECT_TRUE(sut->initialized());
    EXPECT_TRUE(sut->smsInitialized());
    EXPECT_NE(sut->fecReadyState(), nullptr);
    EXPECT_NE(sut->nextHopMapperSm(), nullptr);
    EXPECT_NE(sut->fibReadyMapperSm(), nullptr);
    EXPECT_NE(sut->nextHopGroupMapperSm(), nullptr);
    EXPECT_EQ(sut->fibReadyMapperSm()->frtc().get(), sut->fecReadyState().get());
    EXPECT_THAT(milestones(from),
                ElementsAre("PelAftExportRootSm: Enabled",
                            "PelNexthopMapperSm: Starting",
                            "PelFibReadyMapperSm: create local SMs",
                            "PelNexthopGroupMapperSm: Starting",
                            "PelStateSyncedSm: addressFamily: ipv4",
                            "PelStateSyncedSm: addressFamily: ipv6"));
    EXPECT_NE(sut->fibReadyCoordinatorSmV4(), nullptr);
    EXPECT_NE(sut->fibReadyCoordinatorSmV6(), nullptr);
}

TEST_F(ExportRoot, WithoutAConfigurationNothingIsCreatedAndOnlyTheEmptyMessageIsTraced) {
    toloConfig = nullptr;
    const TestSupport::TraceCapture from;
    start();
    EXPECT_TRUE(sut->initialized());
    EXPECT_FALSE(sut->smsInitialized());
    EXPECT_EQ(sut->fecReadyState(), nullptr);
    EXPECT_EQ(sut->nextHopMapperSm(), nullptr);
    ASSERT_EQ(from.messages().size(), 1U);
    EXPECT_EQ(from.messages()[0].text, "");
    EXPECT_EQ(from.messages()[0].function, "handleInitialized");
}

TEST_F(ExportRoot, AFlagThatIsFalseCreatesNothing) {
    const TestSupport::TraceCapture from;
    start();
    EXPECT_FALSE(sut->smsInitialized());
    EXPECT_THAT(milestones(from), IsEmpty());
}

TEST_F(ExportRoot, InitialisedTwiceCreatesTheMachinesOnce) {
    enabledIs(true);
    start();
    const auto* const first = sut->nextHopMapperSm().get();
    const TestSupport::TraceCapture from;
    sut->handleInitialized();
    EXPECT_EQ(sut->nextHopMapperSm().get(), first);
    EXPECT_THAT(milestones(from), IsEmpty());
}

TEST_F(ExportRoot, AChangeOfTheConfigurationAloneHasNoEffect) {
    start();
    enabledIs(true);
    settle();
    EXPECT_FALSE(sut->smsInitialized());
    sut->handleInitialized();
    EXPECT_TRUE(sut->smsInitialized());
    enabledIs(false);
    settle();
    EXPECT_TRUE(sut->smsInitialized());
}

TEST_F(ExportRoot, DisablingReleasesInOrder) {
    enabledIs(true);
    start();
    publishOne();
    ASSERT_TRUE(aftContainer->fibReady()->fecReady());
    std::vector<std::string> order;
    const auto a =
        aftContainer->fibReady()->onFecReady().subscribe([&] { order.emplace_back("fecReady"); });
    const auto b = aftContainer->nextHopGroups()->onNextHopGroup().subscribe(
        [&](const OcApi::NextHopGroupId&) { order.emplace_back("group"); });
    const auto c = aftContainer->nextHops()->onNextHop().subscribe(
        [&](const OcApi::NextHopIndex&) { order.emplace_back("next hop"); });
    const TestSupport::TraceCapture from;
    enabledIs(false);
    sut->handleInitialized();
    EXPECT_THAT(order, ElementsAre("fecReady", "group", "next hop"));
    EXPECT_THAT(milestones(from),
                ElementsAre("PelAftExportRootSm: Disabled",
                            "PelStateSyncedSm: Cleanup of addressFamily: ipv4",
                            "PelStateSyncedSm: Cleanup of addressFamily: ipv6",
                            "PelFibReadyMapperSm: Line 25: from( this.deleting ):",
                            "PelNexthopGroupMapperSm: Cleanup",
                            "PelNexthopMapperSm: Cleanup"));
    EXPECT_FALSE(sut->smsInitialized());
    EXPECT_EQ(sut->fecReadyState(), nullptr);
    EXPECT_EQ(sut->nextHopMapperSm(), nullptr);
    EXPECT_EQ(sut->fibReadyMapperSm(), nullptr);
    EXPECT_EQ(sut->nextHopGroupMapperSm(), nullptr);
    EXPECT_EQ(sut->fibReadyCoordinatorSmV4(), nullptr);
    EXPECT_EQ(sut->fibReadyCoordinatorSmV6(), nullptr);
}

TEST_F(ExportRoot, AVrfIsDeclaredSyncedOnceAllIsExported) {
    enabledIs(true);
    start();
    defaultVrfIs();
    EXPECT_EQ(synced(), "0");
    EXPECT_FALSE(waits()) << "for the export";
    publishOne();
    EXPECT_TRUE(waits());
    routes->quiescedIs(true);
    publish();
    EXPECT_EQ(synced(), "1");
    EXPECT_FALSE(waits());
}

TEST_F(ExportRoot, DisabledNobodyWaitsAndEnabledAgainAVrfIsDeclaredAnew) {
    enabledIs(true);
    start();
    defaultVrfIs();
    publishOne();
    ASSERT_TRUE(waits());
    const auto coordinator = sut->fibReadyCoordinatorSmV4();
    enabledIs(false);
    sut->handleInitialized();
    EXPECT_FALSE(coordinator->hasNotificationActive());
    EXPECT_FALSE(waits());
    routes->quiescedIs(true);
    publish();
    EXPECT_EQ(synced(), "0") << "nobody looks";
    enabledIs(true);
    sut->handleInitialized();
    EXPECT_EQ(synced(), "0");
    settle();
    EXPECT_EQ(synced(), "1");
    EXPECT_FALSE(waits());
    enabledIs(false);
    sut->handleInitialized();
    EXPECT_EQ(synced(), "1") << "stays until the next start";
    enabledIs(true);
    sut->handleInitialized();
    EXPECT_EQ(synced(), "0") << "of this run";
    settle();
    EXPECT_EQ(synced(), "1");
}

TEST_F(ExportRoot, EnabledAgainFreshMachinesExportAgain) {
    enabledIs(true);
    start();
    publishOne();
    const auto oldState = sut->fecReadyState();
    enabledIs(false);
    sut->handleInitialized();
    EXPECT_EQ(aftContainer->nextHops()->size(), 0U);
    enabledIs(true);
    sut->handleInitialized();
    EXPECT_NE(sut->fecReadyState(), oldState);
    EXPECT_FALSE(sut->fecReadyState()->nhReady());
    settle();
    EXPECT_EQ(aftContainer->nextHops()->size(), 1U);
    EXPECT_EQ(aftContainer->nextHopGroups()->size(), 1U);
    EXPECT_TRUE(aftContainer->fibReady()->fecReady());
}

TEST_F(ExportRoot, MachinesAreSwitchedOffBeforeTheyAreReleased) {
    enabledIs(true);
    start();
    const auto mapper = sut->nextHopMapperSm();
    enabledIs(false);
    sut->handleInitialized();
    EXPECT_FALSE(mapper->hasNotificationActive());
    nextHopIs(7);
    publish();
    EXPECT_TRUE(mapper->backlogEmpty());
    EXPECT_EQ(aftContainer->nextHops()->size(), 0U);
}

TEST_F(ExportRoot, DroppingTheRootDropsItsMachinesAndWhatTheyWrote) {
    enabledIs(true);
    start();
    publishOne();
    sut = nullptr;
    EXPECT_FALSE(aftContainer->fibReady()->fecReady());
    EXPECT_EQ(aftContainer->nextHopGroups()->size(), 0U);
    EXPECT_EQ(aftContainer->nextHops()->size(), 0U);
}

TEST_F(ExportRoot, DisabledWhileAWalkIsUnderWayStopsIt) {
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    enabledIs(true);
    for (std::uint64_t id = 1; id <= 10; ++id) { nextHopIs(id); }
    publish();
    start();
    const auto watch =
        aftContainer->nextHops()->onNextHop().subscribe([&](const OcApi::NextHopIndex& id) {
            if (id.value() == 3 && sut->smsInitialized()) {
                enabledIs(false);
                sut->handleInitialized();
            }
        });
    settle();
    EXPECT_FALSE(sut->smsInitialized());
    EXPECT_EQ(aftContainer->nextHops()->size(), 0U);
}

TEST_F(ExportRoot, ReadinessLatchesEndToEnd) {
    enabledIs(true);
    start();
    EXPECT_FALSE(aftContainer->fibReady()->fecReady());
    publishOne();
    EXPECT_TRUE(sut->fecReadyState()->nhReady());
    EXPECT_TRUE(sut->fecReadyState()->nhgReady());
    EXPECT_TRUE(aftContainer->fibReady()->fecReady());
}

}  // namespace
}  // namespace Pel::Oc
