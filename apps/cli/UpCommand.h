#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "apps/cli/ChildProcess.h"
#include "apps/cli/ExportProgress.h"
#include "platform/AgentHost/ListenAddress.h"

namespace Pel::Cli {

/// `pel up`: this machine's forwarding state, or that of a scenario, exported, in the foreground. Starts forwarder and
/// agent, switches the export on, shows how the first export goes and what is there, and ends both
/// when it is ended, or when one of them ends.
class UpCommand {
public:
    struct Options {
        std::filesystem::path root;
        std::string listen;
        std::filesystem::path plugin;    ///< empty: the one beside this program
        std::filesystem::path scenario;  ///< empty: this machine's own state
        std::optional<unsigned>
            counterSeconds;              ///< from poll to poll; none: the forwarder's default
        bool once = false;               ///< end after the summary
        std::chrono::seconds wait{660};  ///< for the first export; state-synced may take 600 s
        bool clearTextAnywhere = false;
    };
    explicit UpCommand(Options options) : options_{std::move(options)} {}

    /// An ExitCode.
    int run();

private:
    enum class Next { go, interrupted, failed };

    int failed(const std::string& reason) const;
    /// What can be known before anything is started. Empty, or what stands against it.
    std::string check();
    std::string startChildren();
    /// Waits until the agent's server listens.
    Next awaitAgent();
    Next awaitExport(const ExportProgress& progress);
    /// All that the forwarder found has been shown to a client.
    bool exportComplete(const ExportProgress::Counts& counts);
    void showSummary(const ExportProgress::Counts& counts) const;
    Next awaitEnd();
    /// Waits a little; says whether somebody wants to end, or a child has ended.
    Next pause(std::chrono::milliseconds time);
    void endChildren();

    Options options_;
    AgentHost::ListenAddress listen_;
    std::chrono::steady_clock::time_point begun_;
    std::chrono::steady_clock::time_point nextLook_;
    bool forwarderReady_ = false;
    ChildProcess forwarder_{"pel-forwarderd"};
    ChildProcess agent_{"pel-agentd"};
};

}  // namespace Pel::Cli
