#include "PelOpenConfig/PelOpenConfigStatusVrfs.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "PelOpenConfig/PelOpenConfigStatus.h"
#include "model/Aft/StateSyncedContainer.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Vrf/VrfName.h"

namespace Pel::Oc {
namespace {

using AgentHost::CliPrinter;
using Nexo::AddressFamily;
using ByName = std::map<std::string, VrfState, std::less<>>;

constexpr std::size_t kShown = 8;
constexpr const char* kStateSyncedDir = "stateSynced";

VrfState& vrfIs(ByName& vrfs, const std::string& name) {
    VrfState& vrf = vrfs[name];
    vrf.name = name;
    return vrf;
}

void takeTables(ByName& vrfs, const StatusInputs& inputs) {
    if (!inputs.vrfs) { return; }
    for (const auto& [name, entry] : inputs.vrfs->vrfs()) {
        VrfState& vrf = vrfIs(vrfs, name);
        if (!entry.ids.empty()) { vrf.id = entry.ids.begin()->value(); }
        for (const auto family : entry.families) {
            const auto table = inputs.vrfs->table(family, name);
            if (!table || !table->present()) { continue; }
            (family == AddressFamily::ipv4 ? vrf.ipv4 : vrf.ipv6).routes = table->keys().size();
        }
    }
}

void takeReadiness(ByName& vrfs, const StatusInputs& inputs) {
    if (inputs.fibReadyDir) {
        for (const auto& [name, entity] : inputs.fibReadyDir->entities()) {
            const auto ready = Vel::refCast<GatedReady::FibReady>(entity);
            vrfIs(vrfs, name).fibReady = ready && ready->ready();
        }
    }
    // What is there while the export is off is what it left.
    const bool kept = inputs.exportDir && inputs.exportRoot && inputs.exportRoot->smsInitialized();
    const auto synced =
        kept ? inputs.exportDir->entity<Vel::Dir>(kStateSyncedDir) : Vel::Ref<Vel::Dir>{};
    if (!synced) { return; }
    for (const auto& [name, entity] : synced->entities()) {
        const auto state = Vel::refCast<OcApi::StateSyncedContainer>(entity);
        if (!state) { continue; }
        VrfState& vrf = vrfIs(vrfs, name);
        vrf.ipv4.synced = state->ipv4Unicast();
        vrf.ipv6.synced = state->ipv6Unicast();
    }
}

void printFamily(CliPrinter& to,
                 std::string_view label,
                 std::string_view key,
                 const VrfFamilyState& family) {
    to.openDict({}, key);
    to.boolean({}, "table", family.routes.has_value());
    to.text(label);
    if (family.routes) {
        to.number(" ", "routes", *family.routes);
        to.text(" routes");
    } else {
        to.bad(" ", {}, "NO table");
    }
    if (family.synced) {
        to.boolean({}, "synced", *family.synced);
        to.text(*family.synced ? " synced" : " not synced yet");
    }
    to.closeDict();
}

void printVrf(CliPrinter& to, const VrfState& vrf) {
    to.string("  ", "name", vrf.name);
    if (vrf.id) { to.number({}, "id", *vrf.id); }
    to.boolean({}, "fibReady", vrf.fibReady);
    to.text(": FIB ");
    if (vrf.fibReady) {
        to.text("ready");
    } else {
        to.bad({}, {}, "NOT ready");
    }
    printFamily(to, ", IPv4", "ipv4", vrf.ipv4);
    printFamily(to, ", IPv6", "ipv6", vrf.ipv6);
    to.endLine();
}

}  // namespace

std::vector<VrfState> vrfStates(const StatusInputs& inputs) {
    ByName vrfs;
    vrfIs(vrfs, Vrf::kDefaultVrfName);
    takeTables(vrfs, inputs);
    takeReadiness(vrfs, inputs);
    std::vector<VrfState> all;
    for (auto& [name, vrf] : vrfs) { all.push_back(std::move(vrf)); }
    std::stable_partition(all.begin(), all.end(), [](const auto& vrf) { return !vrf.good(); });
    return all;
}

void printVrfs(CliPrinter& to, const std::vector<VrfState>& vrfs, bool exportOn) {
    to.text(exportOn ? "VRFs"
                     : "VRFs        nobody keeps their state-synced while the export is off");
    to.endLine();
    to.openList({}, "vrfs");
    for (std::size_t i = 0; i < to.shownOf(vrfs.size(), kShown); ++i) {
        to.openItem();
        printVrf(to, vrfs[i]);
        to.closeDict();
    }
    to.closeList();
    to.andMore(vrfs.size(), kShown);
}

RouteCounts routeCounts(const std::vector<VrfState>& vrfs) {
    RouteCounts counts;
    for (const VrfState& vrf : vrfs) {
        counts.ipv4 += vrf.ipv4.routes.value_or(0);
        counts.ipv6 += vrf.ipv6.routes.value_or(0);
    }
    return counts;
}

}  // namespace Pel::Oc
