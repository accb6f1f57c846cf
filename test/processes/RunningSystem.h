#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/ChildProcess.h"

namespace TestProcesses {

/// The real forwarder and the real agent as processes, on a temporary root in memory and a port that was free. Both end
/// and the root goes away with the object.
class RunningSystem {
public:
    RunningSystem();
    RunningSystem(const RunningSystem&) = delete;
    RunningSystem& operator=(const RunningSystem&) = delete;
    ~RunningSystem();

    /// Starts the agent with the export on and waits for its server. Empty, or what went wrong.
    std::string startAgent();
    /// @param source arguments after `--source scenario`
    std::string startForwarder(const std::vector<std::string>& source);
    const std::filesystem::path& root() const { return root_; }
    /// Where gNMI clients connect: "127.0.0.1:40123".
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    std::uint16_t port() const { return port_; }
    pid_t agentPid() const { return agent_.pid(); }
    pid_t forwarderPid() const { return forwarder_.pid(); }
    /// Ends the forwarder: no change follows. Empty, or how it ended when that was not in order.
    std::string stopForwarder();
    /// Empty, or which process ended on its own, and how.
    std::string died();
    /// Answer of the agent's control socket in JSON; empty when there is none.
    std::string ask(const std::string& command) const;

private:
    std::filesystem::path root_;
    std::uint16_t port_ = 0;
    bool forwarding_ = false;
    Pel::Cli::ChildProcess agent_{"pel-agentd"};
    Pel::Cli::ChildProcess forwarder_{"pel-forwarderd"};
};

/// The directory of this program, where the others are too.
std::filesystem::path programDirectory();
/// Looks at a condition until it holds or the time is over; whether it held.
template <class Condition>
bool waitUntil(std::chrono::milliseconds time, Condition condition);
void pauseBriefly();

template <class Condition>
bool waitUntil(std::chrono::milliseconds time, Condition condition) {
    const auto until = std::chrono::steady_clock::now() + time;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) { return false; }
        pauseBriefly();
    }
    return true;
}

}  // namespace TestProcesses
