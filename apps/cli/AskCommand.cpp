#include "apps/cli/AskCommand.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string_view>

#include "apps/cli/ControlClient.h"
#include "apps/cli/ExitCode.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

constexpr std::chrono::seconds kPatience{5};  // the agent waits for longer than that
constexpr std::size_t kPage = 4096;           // so much a pipe takes that takes anything

/// Prints when standard output takes it. False when it never will.
bool print(std::string_view text, const std::function<void()>& stillHere) {
    while (!text.empty()) {
        pollfd output{STDOUT_FILENO, POLLOUT, 0};
        const auto patience = std::chrono::milliseconds{kPatience};
        if (::poll(&output, 1, static_cast<int>(patience.count())) == 0) {
            stillHere();
            continue;
        }
        const std::string_view page = text.substr(0, kPage);
        if (std::fwrite(page.data(), 1, page.size(), stdout) != page.size()) { return false; }
        if (std::fflush(stdout) != 0) { return false; }
        text.remove_prefix(page.size());
    }
    return true;
}

}  // namespace

int AskCommand::run(const Options& options) {
    const ControlResult result = ControlClient{options.root, options.timeout}.ask(
        options.command, options.json, options.parameters, print);
    if (!result.error.empty()) { AgentHost::tell("pel", result.error); }
    return result.exitCode();
}

}  // namespace Pel::Cli
