#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>

namespace Pel::Cli {

/// How one request over the control socket ended. `error` says in words what `outcome` means.
struct ControlResult {
    enum class Outcome { answered, refused, nobody, noAnswer };
    Outcome outcome = Outcome::nobody;
    std::string output;
    std::string error;

    /// An ExitCode.
    int exitCode() const;
};

/// Asks the host that runs in a root directory. Blocks, but never beyond the timeout.
class ControlClient {
public:
    ControlClient(std::filesystem::path root, std::chrono::milliseconds timeout)
        : root_{std::move(root)}, timeout_{timeout} {}
    ControlResult ask(const std::string& command,
                      bool json,
                      const std::map<std::string, std::string>& parameters = {}) const;

private:
    std::filesystem::path root_;
    std::chrono::milliseconds timeout_;
};

}  // namespace Pel::Cli
