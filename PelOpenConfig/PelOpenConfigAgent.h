#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PelOpenConfig/DecapGroupConfigMergeSm.h"
#include "PelOpenConfig/NexthopGroupCliDynamicConfigUdpDestPortMergeSm.h"
#include "PelOpenConfig/PelAftExportRootSm.h"
#include "PelOpenConfig/PelCountersMapperStatusManagerSm.h"
#include "PelOpenConfig/PelNexthopGuePortSm.h"
#include "PelOpenConfig/PelOpenConfigCliHelper.h"
#include "PelOpenConfig/PelVrfTables.h"
#include "platform/AgentHost/AgentBase.h"
#include "platform/AgentHost/AsyncShowCommandAnchor.h"

namespace Gale {
class RunnabilitySm;
struct ExtraProvider;
}  // namespace Gale

namespace Pel::Oc {

struct StatusInputs;

/// Root of the export: mounts every input, creates what the export writes, and wires inputs to
/// machines in a fixed order. It decides nothing. Nothing else constructs machines but the export
/// root, so this file and PelAftExportRootSm.cpp show who reads and writes what.
///
///   stage             entered by          what exists
///   constructed       agentFactory()      nothing
///   initialising      doInit()            trace file, mounts under way
///   mounts complete   doMountsComplete()  everything
///   cleaned up        doCleanup()         the streamed tree is gone
///
/// A failed mount of the state database stops the process: there is no partial start. An input that
/// is missing or of another type is null, and the machines take it as empty.
class Agent final : public AgentHost::AgentBase {
public:
    explicit Agent(const std::string& name);
    ~Agent() override;

    void doInit() override;
    void doMountsComplete(Hubdb::MountStatus status,
                          const Vel::Ref<Hubdb::EntityManager>& entityManager) override;
    void doReinitialize() override;
    void doStop() override;
    void doCleanup() override;
    std::uint16_t gnmiPort() const override;
    void status(const AgentHost::StatusAnswer& answer) override;

    /// What is streamed besides the tree: the route tables, unless toggle "GaleTarnServer"
    /// ("Gale.json") is off.
    std::vector<Gale::ExtraProvider> extraProviders() const;

    bool mountsComplete() const { return mountsComplete_; }
    const Vel::Ref<Kiln::TaskGroup>& notifyTaskGroup() const { return notifyTaskGroup_; }
    const Vel::Ref<const Tolo::Config>& toloConfig() const { return toloConfig_; }
    const Vel::Ref<OcApi::AftContainer>& aftContainer() const { return aftContainer_; }
    const Vel::Ref<L3::Tunnel::UdpDestinationPortConfig>& udpDestPortConfigLocal() const {
        return udpDestPortConfigLocal_;
    }
    const Vel::Ref<Tunnel::Decap::Config>& dgConfigLocal() const { return dgConfigLocal_; }
    const Vel::Ref<PelNexthopGueEncapDestPort>& gueEncapDestPort() const {
        return gueEncapDestPort_;
    }
    const Vel::Ref<Stash::MountGroup>& stashMountGroup() const { return stashMountGroup_; }
    const Vel::Ref<const FlattenFecSet>& flattenFecSet() const { return flattenFecSet_; }
    const Vel::Ref<PelOcFecExportData>& pelOcFecExportData() const { return pelOcFecExportData_; }
    const Vel::Ref<AnchorValidatorContext>& anchorValidatorCtx() const {
        return anchorValidatorCtx_;
    }
    const Vel::Ref<AftExportRootSm>& aftExportRootSm() const { return aftExportRootSm_; }
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& asyncShowCommandAnchor() const {
        return asyncShowCommandAnchor_;
    }
    const Vel::Ref<CliHelper>& cliHelper() const { return cliHelper_; }
    const Vel::Ref<CountersMapperStatusManagerSm>& countersMapperStatusManagerSm() const {
        return countersMapperStatusManagerSm_;
    }
    const Vel::Ref<Gale::RunnabilitySm>& galeRunnabilitySm() const { return galeRunnabilitySm_; }

private:
    void traceFileIs();
    void hubdbMounts();
    void mesaMounts();
    void createServerObjects(const Vel::Ref<Hubdb::EntityManager>& entityManager);
    void createGuePorts(const Vel::Ref<Hubdb::EntityManager>& entityManager,
                        const Vel::Ref<Vel::Dir>& exportDir);
    void startAftExportRootSm();
    void showCommandsAre();
    template <class Callback, class Shown>
    void showCommandIs(Vel::Ref<Shown> shown);
    StatusInputs statusInputs() const;
    void createStreamServer(const Vel::Ref<Hubdb::EntityManager>& entityManager);

    bool mountsComplete_ = false;
    Vel::Ref<Kiln::TaskGroup> notifyTaskGroup_;
    Vel::Ref<Hubdb::MountGroup> hubdbMountGroup_;
    Vel::Ref<const Tolo::Config> toloConfig_;
    Vel::Ref<OcApi::AftContainer> aftContainer_;
    Vel::Ref<L3::Tunnel::UdpDestinationPortConfig> udpDestPortConfigLocal_;
    Vel::Ref<NexthopGroupCliDynamicConfigUdpDestPortMergeSm>
        nexthopGroupCliDynamicUdpDestPortMergeSm_;
    Vel::Ref<Tunnel::Decap::Config> dgConfigLocal_;
    Vel::Ref<DecapGroupConfigMergeSm> dgConfigMergeSm_;
    Vel::Ref<PelNexthopGueEncapDestPort> gueEncapDestPort_;
    Vel::Ref<PelNexthopGuePortSm> pelNexthopGuePortSm_;
    Vel::Ref<const Vxlan::VtiStatusDir> vxlanVtiStatusDir_;
    Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir_;
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus_;
    Vel::Ref<PelOcFecExportData> pelOcFecExportData_;
    Vel::Ref<Stash::Manager> stashManager_;
    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeyTable_;
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap_;
    Vel::Ref<VrfTables> vrfTables_;
    Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap_;
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    Vel::Ref<AftExportRootSm> aftExportRootSm_;
    Vel::Ref<AgentHost::AsyncShowCommandAnchor> asyncShowCommandAnchor_;
    Vel::Ref<CliHelper> cliHelper_;
    std::vector<std::string> showCommands_;  // registered
    Vel::Ref<CountersMapperStatusManagerSm> countersMapperStatusManagerSm_;
    Vel::Ref<Vel::Dir> runnabilityDir_;
    Vel::Ref<Gale::RunnabilitySm> galeRunnabilitySm_;
    Lmo::SmControl lumoControl_;
};

}  // namespace Pel::Oc

/// The plug-in's factory, see platform/AgentHost/AgentPlugin.h.
extern "C" AgentHost::AgentBase* agentFactory(const char* name);
