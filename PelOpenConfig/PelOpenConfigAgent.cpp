#include "PelOpenConfig/PelOpenConfigAgent.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include "PelOpenConfig/PelOpenConfigCliCallback.h"
#include "PelOpenConfig/PelOpenConfigCliEntries.h"
#include "PelOpenConfig/PelOpenConfigCliRoute.h"
#include "PelOpenConfig/PelOpenConfigStatus.h"
#include "model/Registration.h"
#include "platform/AgentHost/AgentPlugin.h"
#include "platform/Blink/RingFile.h"
#include "platform/Blink/Trace.h"
#include "platform/Gale/RunnabilitySm.h"
#include "platform/Stash/Set.h"
#include "platform/Toggle/Toggle.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("PelOpenConfigAgent");
PEL_AGENT_REVISION();

namespace Pel::Oc {
namespace {

constexpr const char* kNexthopGroupInputConfigPath = "routing/nexthopgroup/input/config";
constexpr const char* kDecapDynamicPath = "routing/tunneldecap/input/dynamic";
constexpr const char* kExportDirName = "AftExport";

Gale::ExtraProvider fibRouteProvider(const Vel::Ref<Mesa::EntityManager>& tables) {
    return {"FibRoute", [tables] {
                return Vel::make<Gale::TableProvider>(
                    "FibRoute",
                    tables,
                    absl::node_hash_set<std::string>{"/FibRoute/routing/status",
                                                     "/FibRoute/routing/vrf/status",
                                                     "/FibRoute/routing6/status",
                                                     "/FibRoute/routing6/vrf/status"});
            }};
}

}  // namespace

Agent::Agent(const std::string& name) : AgentBase{name} {}

Agent::~Agent() {
    if (hubdbMountGroup_) { hubdbMountGroup_->cancel(); }
}

void Agent::doInit() {
    if (std::getenv("BLINK_DISABLE") == nullptr) { traceFileIs(); }
    notifyTaskGroup_ = scheduler()->taskGroupIs("PelOpenConfig-GnmiNotify", 3, 2);
    TRACE9("Mounting Hubdb");
    registerModelTypes();
    hubdbMounts();
    mesaMounts();
    cmdRequestDirSm()->absenceIs("the agent waits for its mounts; see: pel show status");
    hubdbMountGroup_->close(false, "", Kiln::Duration::zero());
}

void Agent::traceFileIs() {
    Blink::handlesDeleteOnForkIs(true);
    std::string fileName;
    if (std::getenv("BLINKDIR") == nullptr) { fileName += "-%d"; }
    fileName += ".bk";
    if (Blink::defaultHandle() == nullptr) {
        Blink::init(fileName, nullptr, nullptr, 0, 24, Blink::Threading::multi, true, 512);
    }
    Blink::defaultHandle()->mtTraceFileIs();
}

void Agent::hubdbMounts() {
    hubdbMountGroup_ = entityManager()->mountGroup(*this);
    Hubdb::MountGroup& group = *hubdbMountGroup_;
    group.mount(Vxlan::VtiStatusDir::kPath, Vxlan::VtiStatusDir::kType, "r", 0);
    group.mount(entityManager()->cellPath("routing/fibReady"), "Vel::Dir", "ri", 0);
    group.mount(FlattenFecSetReadyStatus::kPath, FlattenFecSetReadyStatus::kType, "r", 0);
    group.mount(Tolo::Config::kPath, Tolo::Config::kType, "r", 0);
    group.mount(L3::Tunnel::UdpDestinationPortConfig::kPath,
                L3::Tunnel::UdpDestinationPortConfig::kType,
                "r",
                0);
    group.mount(kNexthopGroupInputConfigPath, "Vel::Dir", "ri", 0);
    group.mount(Tunnel::Decap::ConfigInput::kPath, Tunnel::Decap::ConfigInput::kType, "r", 0);
    group.mount(kDecapDynamicPath, "Vel::Dir", "rD", 0);
}

void Agent::mesaMounts() {
    using Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;
    Mesa::MountGroup& group = *sharedMemoryMountGroup();
    group.mount(NexthopGroupEntryToCounterKeyTable::kPath,
                NexthopGroupEntryToCounterKeyTable::kType,
                Mesa::TableKind::table);
    group.mount(Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType, Mesa::TableKind::table);
    group.close();
}

void Agent::doMountsComplete(Hubdb::MountStatus status,
                             const Vel::Ref<Hubdb::EntityManager>& entityManager) {
    TRACE9("Hubdb Mounts Completed");
    using Hubdb::mountSuccess_;
    VEL_ASSERT_TEXT(status == mountSuccess_, "status == Hubdb::mountSuccess_");
    mountsComplete_ = true;
    createServerObjects(entityManager);
    pelOcFecExportData_ = Vel::make<PelOcFecExportData>();
    startAftExportRootSm();
    countersMapperStatusManagerSm_ = countersMapperStatusManagerSmFactory(entityManager,
                                                                          scheduler(),
                                                                          stashMountGroup_,
                                                                          flattenFecSet_,
                                                                          pelOcFecExportData_,
                                                                          toloConfig_,
                                                                          anchorValidatorCtx_,
                                                                          pelOcNextHopCountersMap_);
    createStreamServer(entityManager);
    cmdRequestDirSm()->absenceIs({});
}

void Agent::createServerObjects(const Vel::Ref<Hubdb::EntityManager>& entityManager) {
    TRACE9("Create streamed objects");
    toloConfig_ = entityManager->entity<Tolo::Config>(Tolo::Config::kPath);

    const Vel::Ref<Vel::Dir> exportDir = entityManager->globalDir()
                                             ->entityIs<Vel::Dir>(entityManager->name())
                                             ->entityIs<Vel::Dir>(kExportDirName);
    aftContainer_ = exportDir->entityIs<Vel::Dir>("OpenConfig")
                        ->entityIs<Vel::Dir>("afts")
                        ->entityIs<OcApi::AftContainer>("aftContainer");
    aftContainer_->nextHopGroupsIs();
    aftContainer_->nextHopsIs();
    aftContainer_->fibReadyIs();
    aftContainer_->nextHopCountersIs();

    createGuePorts(entityManager, exportDir);

    vxlanVtiStatusDir_ = entityManager->entity<Vxlan::VtiStatusDir>(Vxlan::VtiStatusDir::kPath);
    allVrfGatedFibReadyDir_ =
        entityManager->entity<Vel::Dir>(entityManager->cellPath("routing/fibReady"));
    flattenFecSetReadyStatus_ =
        entityManager->entity<FlattenFecSetReadyStatus>(FlattenFecSetReadyStatus::kPath);
}

/// The port machine reads the ports as they are configured, and the decap groups as they are merged.
void Agent::createGuePorts(const Vel::Ref<Hubdb::EntityManager>& entityManager,
                           const Vel::Ref<Vel::Dir>& exportDir) {
    using L3::Tunnel::UdpDestinationPortConfig;
    using Tunnel::Decap::ConfigInput;
    lumoControl_.scheduler = scheduler();
    udpDestPortConfigLocal_ = Vel::make<UdpDestinationPortConfig>("udpDestPort");
    const auto udpDestPortConfig =
        entityManager->entity<UdpDestinationPortConfig>(UdpDestinationPortConfig::kPath);
    nexthopGroupCliDynamicUdpDestPortMergeSm_ = NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(
        udpDestPortConfigLocal_,
        udpDestPortConfig,
        entityManager->entity<Vel::Dir>(kNexthopGroupInputConfigPath),
        lumoControl_);

    dgConfigLocal_ = Vel::make<Tunnel::Decap::Config>("dgConfig");
    dgConfigMergeSm_ =
        DecapGroupConfigMergeSmIs(dgConfigLocal_,
                                  entityManager->entity<ConfigInput>(ConfigInput::kPath),
                                  entityManager->entity<Vel::Dir>(kDecapDynamicPath),
                                  entityManager);

    gueEncapDestPort_ = pelNexthopGueEncapDestPortFactory(PelNexthopGueEncapDestPort::kName);
    exportDir->insert(gueEncapDestPort_);  // where the views look for it
    pelNexthopGuePortSm_ =
        PelNexthopGuePortSmIs(dgConfigLocal_, udpDestPortConfig, gueEncapDestPort_);
}

void Agent::startAftExportRootSm() {
    const Vel::Ref<Mesa::EntityManager>& sharedMemory = sharedMemoryEntityManager();
    stashManager_ = Vel::make<Stash::Manager>(sharedMemory->reader());
    stashMountGroup_ = Vel::make<Stash::MountGroup>(sharedMemory, stashManager_, stashName());
    stashMountGroup_->mount(FlattenFecSet::kPath,
                            FlattenFecSet::kType,
                            {Mesa::TableKind::stashSet,
                             {FlattenFecSet::kFecCollection, FlattenFecSet::kNextHopCollection}});
    stashMountGroup_->close();

    using Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;
    counterKeyTable_ = sharedMemory->entity<NexthopGroupEntryToCounterKeyTable>(
        NexthopGroupEntryToCounterKeyTable::kPath);
    vrfIdMap_ = sharedMemory->entity<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::kPath);
    flattenFecSet_ = sharedMemory->entity<FlattenFecSet>(FlattenFecSet::kPath);
    pelOcNextHopCountersMap_ = Vel::make<PelOcNextHopCountersMap>();
    anchorValidatorCtx_ = anchorValidatorContextFactory(flattenFecSet_);
    aftExportRootSm_ = aftExportRootSmFactory(toloConfig_,
                                              aftContainer_,
                                              entityManager(),
                                              scheduler(),
                                              stashMountGroup_,
                                              flattenFecSet_,
                                              flattenFecSetReadyStatus_,
                                              anchorValidatorCtx_,
                                              pelOcFecExportData_,
                                              pelOcNextHopCountersMap_,
                                              counterKeyTable_,
                                              vxlanVtiStatusDir_,
                                              allVrfGatedFibReadyDir_,
                                              vrfIdMap_);
    showCommandsAre();
}

void Agent::showCommandsAre() {
    asyncShowCommandAnchor_ =
        Vel::make<AgentHost::AsyncShowCommandAnchor>("asyncShowCommandAnchor", scheduler());
    cliHelper_ = Vel::make<CliHelper>(
        flattenFecSet_, stashManager_, anchorValidatorCtx_->fecAv(), anchorValidatorCtx_->nhAv());
    const OcApi::AftContainer& aft = *aftContainer_;
    vrfTables_ = Vel::make<VrfTables>(sharedMemoryEntityManager(), vrfIdMap_);
    showCommandIs<ShowFecExportAsyncCliCallback>(cliHelper_);
    showCommandIs<ShowEntriesAsyncCliCallback<NextHopEntries>>(Vel::make<NextHopEntries>(aft));
    showCommandIs<ShowEntriesAsyncCliCallback<GroupEntries>>(Vel::make<GroupEntries>(aft));
    showCommandIs<ShowEntriesAsyncCliCallback<VrfEntries>>(Vel::make<VrfEntries>(vrfTables_));
    showCommandIs<ShowRouteAsyncCliCallback>(Vel::make<RouteSources>(vrfTables_, cliHelper_, aft));
}

template <class Callback, class Shown>
void Agent::showCommandIs(Vel::Ref<Shown> shown) {
    const auto callback = Vel::make<Callback>(asyncShowCommandAnchor_, std::move(shown));
    cmdRequestDirSm()->agentCommandCallbackWithHeartbeatIs(callback->name(), callback);
    showCommands_.push_back(callback->name());
}

void Agent::createStreamServer(const Vel::Ref<Hubdb::EntityManager>& entityManager) {
    TRACE9("Create the stream server");
    runnabilityDir_ = Vel::make<Vel::Dir>("runnabilityDir");
    galeRunnabilitySm_ =
        Vel::make<Gale::RunnabilitySm>(runnabilityDir_,
                                       entityManager,
                                       Gale::ServerConfig{name(), kExportDirName},
                                       Gale::CustomProviderConfig{notifyTaskGroup_},
                                       extraProviders(),
                                       cmdRequestDirSm(),
                                       scheduler());
}

std::vector<Gale::ExtraProvider> Agent::extraProviders() const {
    if (!Toggle::getToggleState("Gale.json", "GaleTarnServer", true)) { return {}; }
    return {fibRouteProvider(sharedMemoryEntityManager())};
}

void Agent::doReinitialize() {
    if (aftExportRootSm_) { aftExportRootSm_->handleInitialized(); }
}

void Agent::doStop() {
    for (const std::string& command : std::exchange(showCommands_, {})) {
        cmdRequestDirSm()->agentCommandCallbackDel(command);
    }
    if (galeRunnabilitySm_) { galeRunnabilitySm_->handleCleanup(); }
}

void Agent::doCleanup() {
    const auto holder = entityManager()->globalDir()->entity<Vel::Dir>(entityManager()->name());
    if (holder) { holder->entityDel(kExportDirName); }
}

void Agent::status(const AgentHost::StatusAnswer& answer) {
    const auto finish = [this, answer](const Gale::ServiceStatus& service) {
        const Status status{statusInputs(), service, scheduler()->clock().now()};
        answer([&status](AgentHost::CliPrinter& to) { status.print(to); });
    };
    if (galeRunnabilitySm_) {
        galeRunnabilitySm_->status(finish);
    } else {
        finish({});
    }
}

StatusInputs Agent::statusInputs() const {
    const auto outputs = entityManager()->globalDir()->entity<Vel::Dir>(entityManager()->name());
    return {.mountsComplete = mountsComplete_,
            .toloConfig = toloConfig_,
            .exportRoot = aftExportRootSm_,
            .aft = aftContainer_,
            .stash = stashMountGroup_,
            .forwarderReady = flattenFecSetReadyStatus_,
            .fibReadyDir = allVrfGatedFibReadyDir_,
            .exportDir = outputs ? outputs->entity<Vel::Dir>(kExportDirName) : nullptr,
            .vrfs = vrfTables_,
            .counters = countersMapperStatusManagerSm_
                            ? countersMapperStatusManagerSm_->countersMapperSm()
                            : nullptr,
            .tables = sharedMemoryEntityManager()};
}

std::uint16_t Agent::gnmiPort() const {
    return galeRunnabilitySm_ ? galeRunnabilitySm_->port() : std::uint16_t{0};
}

}  // namespace Pel::Oc

AgentHost::AgentBase* agentFactory(const char* name) {
    try {
        return new Pel::Oc::Agent(name);  // the host takes the first reference
    } catch (const std::exception& error) {
        TRACE5("the agent cannot be made: {}", error.what());
        return nullptr;
    }
}
