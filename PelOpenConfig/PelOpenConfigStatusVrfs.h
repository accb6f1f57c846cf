#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/AgentHost/CliPrinter.h"

namespace Pel::Oc {

struct StatusInputs;

/// One address family of a VRF.
struct VrfFamilyState {
    std::optional<std::size_t> routes;  ///< nothing: its table is not there
    std::optional<bool> synced;         ///< nothing: the VRF was not considered yet
};

/// What the inputs say of a VRF.
struct VrfState {
    std::string name;
    std::optional<std::uint32_t> id;
    bool fibReady = false;  ///< the forwarder has declared it complete
    VrfFamilyState ipv4;
    VrfFamilyState ipv6;

    bool good() const { return fibReady && ipv4.routes && ipv6.routes; }
};

/// The VRFs that any input names, those in front with which something is wrong, else by name.
std::vector<VrfState> vrfStates(const StatusInputs& inputs);
void printVrfs(AgentHost::CliPrinter& to, const std::vector<VrfState>& vrfs, bool exportOn);

/// The routes of all VRFs.
struct RouteCounts {
    std::size_t ipv4 = 0;
    std::size_t ipv6 = 0;
};
RouteCounts routeCounts(const std::vector<VrfState>& vrfs);

}  // namespace Pel::Oc
