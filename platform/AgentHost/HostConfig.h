#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

#include "platform/Gale/Server.h"

namespace AgentHost {

/// Settings of the process that hosts an agent.
struct HostConfig {
    /// Holds state/, config/, trace/, toggles/, control.sock and agent.lock; a memory file system.
    std::filesystem::path root = "/dev/shm/pel";
    std::string agentName = "PelOpenConfig";
    unsigned cellId = 1;                               ///< prefix of cell-specific paths
    std::string stashName = "stash";                   ///< the platform's stash
    std::size_t stateMapBytes = std::size_t{4} << 30;  ///< upper bound of the state store, in bytes
    Gale::HostConfig gnmi;                             ///< where and how clients are served

    std::filesystem::path stateDirectory() const { return root / "state"; }
    std::filesystem::path configurationDirectory() const { return root / "config"; }
    static constexpr const char* kAgentLock = "agent.lock";
    /// Of who writes the state.
    static constexpr const char* kForwarderLock = "forwarder.lock";
    std::filesystem::path controlSocket() const { return root / "control.sock"; }
};

}  // namespace AgentHost
