#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "apps/cli/ChildProcess.h"

namespace Bench {

/// Where the programs under measurement are.
struct Programs {
    std::string agentd;
    std::string plugin;
};

/// A pel-agentd of its own over a root directory, as an operator would run it. Ended with the
/// object.
class AgentProcess {
public:
    AgentProcess(const Programs& programs, const std::filesystem::path& root);

    /// Where it listens, once it does.
    std::uint16_t waitForPort() const;
    /// CPU time of the process so far, of all its threads, in nanoseconds.
    std::uint64_t cpuNanoseconds() const;
    /// Private memory without mapped files: neither store nor trace ring.
    std::uint64_t rssAnonBytes() const;

private:
    std::uint16_t port_;
    Pel::Cli::ChildProcess process_{"pel-agentd"};
};

}  // namespace Bench
