#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

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

/// Asks the host that runs in a root directory. Blocks, but never longer than the timeout without
/// a sign of life from the host: a line of the answer, or a heartbeat.
class ControlClient {
public:
    /// Takes a piece of output; answers false when it wants no more. It calls `stillHere` now and
    /// then while it waits for its own reader: the host then waits, too.
    using Sink =
        std::function<bool(std::string_view piece, const std::function<void()>& stillHere)>;

    ControlClient(std::filesystem::path root, std::chrono::milliseconds timeout)
        : root_{std::move(root)}, timeout_{timeout} {}
    ControlResult ask(const std::string& command,
                      bool json,
                      const std::map<std::string, std::string>& parameters = {}) const;
    /// The same for an answer of any length: the output goes into the sink as it comes, and is not
    /// in the result.
    ControlResult ask(const std::string& command,
                      bool json,
                      const std::map<std::string, std::string>& parameters,
                      const Sink& sink) const;

private:
    std::filesystem::path root_;
    std::chrono::milliseconds timeout_;
};

}  // namespace Pel::Cli
