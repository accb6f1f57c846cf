#pragma once

#include <string>

#include "PelOpenConfig/PelAftExportRootSm.h"
#include "PelOpenConfig/PelCountersMapperSm.h"
#include "PelOpenConfig/PelVrfTables.h"
#include "platform/AgentHost/CliPrinter.h"
#include "platform/Gale/ServiceStatus.h"

namespace Pel::Oc {

struct RouteCounts;

/// What a status tells of the export. Before the mounts are complete most of it is null.
struct StatusInputs {
    bool mountsComplete = false;
    Vel::Ref<const Tolo::Config> toloConfig;
    Vel::Ref<AftExportRootSm> exportRoot;
    Vel::Ref<OcApi::AftContainer> aft;
    Vel::Ref<Stash::MountGroup> stash;
    Vel::Ref<const FlattenFecSetReadyStatus> forwarderReady;
    Vel::Ref<const Vel::Dir> fibReadyDir;  ///< GatedReady::FibReady by VRF
    Vel::Ref<Vel::Dir> exportDir;          ///< holds "stateSynced", once the export was on
    Vel::Ref<VrfTables> vrfs;
    Vel::Ref<CountersMapperSm> counters;
    Vel::Ref<Mesa::EntityManager> tables;
};

/// The agent's part of a status: whether the export is on and what it waits for, what is held and
/// what is shown, who reads it. Says what its inputs say at this moment. docs/show.md has the lines.
class Status final {
public:
    /// `service`: of the streaming server; outlives this object.
    Status(StatusInputs inputs, const Gale::ServiceStatus& service, Kiln::TimePoint now);

    void print(AgentHost::CliPrinter& to) const;

private:
    bool enabled() const;
    std::string whyOff() const;
    void printExport(AgentHost::CliPrinter& to) const;
    void printMounts(AgentHost::CliPrinter& to) const;
    void printReadiness(AgentHost::CliPrinter& to) const;
    /// Why a half of the readiness is missing; the mapper is null while the export is off.
    template <class Mapper>
    std::string waitsFor(const Vel::Ref<Mapper>& mapper) const;
    void printEntries(AgentHost::CliPrinter& to, const RouteCounts& routes) const;
    void printCounters(AgentHost::CliPrinter& to) const;
    void printWaiting(AgentHost::CliPrinter& to) const;
    /// Null when the view is not served.
    const Gale::ViewStatus* view(std::string_view origin) const;

    const StatusInputs inputs_;
    const Gale::ServiceStatus& service_;
    const Kiln::TimePoint now_;
};

}  // namespace Pel::Oc
