#include "apps/cli/UpCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <system_error>

#include "apps/cli/ConfigStore.h"
#include "apps/cli/ControlClient.h"
#include "apps/cli/ExitCode.h"
#include "apps/cli/MountedEntity.h"
#include "forwarder/Scenario/Scenario.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Cli {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kStartTime{15'000};
constexpr milliseconds kEndTime{10'000};
constexpr milliseconds kQuietTime{2000};
/// What a small router's store takes, with room to spare; less is not worth a start.
constexpr std::uint64_t kLeastFreeBytes = 64ULL << 20U;

sigset_t endSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

std::filesystem::path ownDirectory() {
    std::error_code problem;
    return std::filesystem::read_symlink("/proc/self/exe", problem).parent_path();
}

std::string mebibytes(std::uint64_t bytes) {
    return fmt::format("{} MiB", bytes >> 20U);
}

std::uint64_t freeBytes(const std::filesystem::path& directory) {
    struct statvfs status {};
    if (::statvfs(directory.c_str(), &status) != 0) { return 0; }
    return std::uint64_t{status.f_bavail} * status.f_frsize;
}

std::string progressLine(const ExportProgress::Counts& counts, Clock::duration since) {
    return fmt::format(
        "exporting: {} next hops, {} groups, {} IPv4 and {} IPv6 prefixes ({:.1f} s)",
        counts.nextHops,
        counts.groups,
        counts.ipv4,
        counts.ipv6,
        std::chrono::duration<double>(since).count());
}

}  // namespace

int UpCommand::run() {
    const sigset_t signals = endSignals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // taken in pause()
    begun_ = Clock::now();
    if (const std::string problem = check(); !problem.empty()) { return failed(problem); }
    if (const std::string problem = startChildren(); !problem.empty()) { return failed(problem); }
    Next next = awaitAgent();
    if (next == Next::go) {
        const ExportProgress progress{listen_.reachable().text()};
        next = awaitExport(progress);
        if (next == Next::go) { showSummary(progress.counts()); }
    }
    if (next == Next::go && !options_.once) { next = awaitEnd(); }
    endChildren();
    return next == Next::failed ? kFailed : kDone;
}

int UpCommand::failed(const std::string& reason) const {
    AgentHost::tell("pel up", reason);
    return kFailed;
}

std::string UpCommand::check() {
    const auto listen = AgentHost::ListenAddress::parse(options_.listen);
    if (!listen || listen->port == 0) { return "--listen takes a port from 1 to 65535"; }
    listen_ = *listen;
    if (options_.plugin.empty()) {
        options_.plugin = ownDirectory() / ".." / "lib" / "libPelOpenConfigAgent.so";
    }
    if (!options_.scenario.empty()) {
        std::vector<std::string> problems;
        if (!Forwarder::loadScenario(options_.scenario.string(), problems)) {
            return fmt::format("{}", fmt::join(problems, "\n"));
        }
    }
    std::error_code problem;
    std::filesystem::create_directories(options_.root, problem);
    if (problem) { return "directory " + options_.root.string() + ": " + problem.message(); }
    const std::uint64_t room = freeBytes(options_.root);
    const std::uint64_t limit = AgentHost::HostConfig{}.stateMapBytes;
    fmt::print("store   {}: {} free there; it grows with the state, to {} at most\n",
               (options_.root / "state").string(),
               mebibytes(room),
               mebibytes(std::min(room, limit)));
    std::fflush(stdout);
    if (room < kLeastFreeBytes) {
        return fmt::format("{} has {} free, at least {} are needed; choose another with --root",
                           options_.root.string(),
                           mebibytes(room),
                           mebibytes(kLeastFreeBytes));
    }
    // An agent that runs here holds the port too; that it runs is what the user needs to know.
    const auto running = ControlClient{options_.root, milliseconds{2000}}.ask("status", false);
    if (running.outcome != ControlResult::Outcome::nobody) {
        return "an agent runs in " + options_.root.string() + " already; see: pel show status";
    }
    return listen_.unusable();
}

std::string UpCommand::startChildren() {
    // Before the agent starts: it then needs no telling.
    if (std::string problem = ConfigStore{options_.root}.aftExportEnabledIs(true);
        !problem.empty()) {
        return problem;
    }
    const std::filesystem::path here = ownDirectory();
    const std::string root = options_.root.string();
    std::vector<std::string> forwarder{
        (here / "pel-forwarderd").string(), "--root", root, "--source"};
    if (options_.scenario.empty()) {
        forwarder.emplace_back("kernel");
    } else {
        forwarder.insert(forwarder.end(), {"scenario", "--scenario", options_.scenario.string()});
    }
    if (options_.counterSeconds) {
        forwarder.insert(forwarder.end(),
                         {"--counter-interval", std::to_string(*options_.counterSeconds)});
    }
    if (std::string problem = forwarder_.start(forwarder); !problem.empty()) { return problem; }
    std::vector<std::string> agent{(here / "pel-agentd").string(),
                                   "--root",
                                   root,
                                   "--plugin",
                                   options_.plugin.string(),
                                   "--listen",
                                   options_.listen};
    if (options_.clearTextAnywhere) { agent.emplace_back("--clear-text-on-any-address"); }
    return agent_.start(agent);
}

UpCommand::Next UpCommand::pause(milliseconds time) {
    const sigset_t signals = endSignals();
    const timespec wait{time.count() / 1000, (time.count() % 1000) * 1'000'000};
    if (::sigtimedwait(&signals, nullptr, &wait) > 0) {
        fmt::print("\nending\n");
        return Next::interrupted;
    }
    for (ChildProcess* const child : {&forwarder_, &agent_}) {
        if (const auto how = child->ended()) {
            failed(child->name() + " " + *how);
            return Next::failed;
        }
    }
    return Next::go;
}

UpCommand::Next UpCommand::awaitAgent() {
    const ControlClient control{options_.root, milliseconds{1000}};
    std::string last;
    while (Clock::now() < begun_ + kStartTime) {
        const ControlResult result = control.ask("status", true);
        const auto status = nlohmann::json::parse(result.output, nullptr, false);
        if (status.is_object() && status.value("/gnmi/port"_json_pointer, 0) != 0) {
            return Next::go;
        }
        last = result.error;
        if (const Next next = pause(milliseconds{100}); next != Next::go) { return next; }
    }
    failed("the agent's server is not up after 15 s" + (last.empty() ? "" : ": " + last));
    return Next::failed;
}

bool UpCommand::exportComplete(const ExportProgress::Counts& counts) {
    if (!counts.synced) { return false; }
    if (counts.ipv4StateSynced && counts.ipv6StateSynced) { return true; }
    // The flags may follow only after ten minutes on a router whose routes never come to rest.
    // Until then: the forwarder has published all there is, and nothing more comes out.
    if (Clock::now() - counts.lastChange < kQuietTime) { return false; }
    if (!forwarderReady_ && Clock::now() >= nextLook_) {
        nextLook_ = Clock::now() + milliseconds{500};
        std::string error;
        readEntity<FlattenFecSetReadyStatus>(
            options_.root / "state",
            [this](const FlattenFecSetReadyStatus& status) { forwarderReady_ = status.fecReady(); },
            error);
    }
    return forwarderReady_;
}

UpCommand::Next UpCommand::awaitExport(const ExportProgress& progress) {
    const bool terminal = ::isatty(STDOUT_FILENO) != 0;
    const auto deadline = Clock::now() + options_.wait;
    auto nextLine = Clock::now();
    while (true) {
        const ExportProgress::Counts counts = progress.counts();
        const bool complete = exportComplete(counts);
        const bool last = complete || Clock::now() >= deadline;
        // A terminal's line is written over; a log gets one every few seconds.
        if (last || Clock::now() >= nextLine) {
            fmt::print("{}{}{}",
                       terminal ? "\r\x1b[K" : "",
                       progressLine(counts, Clock::now() - begun_),
                       terminal && !last ? "" : "\n");
            std::fflush(stdout);
            nextLine = Clock::now() + (terminal ? milliseconds{200} : milliseconds{3000});
        }
        if (complete) { return Next::go; }
        if (counts.ended) {
            failed("the stream ended: " + counts.error);
            return Next::failed;
        }
        if (last) {
            failed(fmt::format(
                "the first export was not complete after {} s; pel show status says more",
                options_.wait.count()));
            return Next::failed;
        }
        if (const Next next = pause(milliseconds{50}); next != Next::go) { return next; }
    }
}

void UpCommand::showSummary(const ExportProgress::Counts& counts) const {
    fmt::print("\n{:<24}{:>12}\n", "exported", "entries");
    fmt::print("{:<24}{:>12}\n", "interfaces used", counts.interfaces);
    fmt::print("{:<24}{:>12}\n", "next hops", counts.nextHops);
    fmt::print("{:<24}{:>12}\n", "next-hop groups", counts.groups);
    fmt::print("{:<24}{:>12}\n", "IPv4 prefixes", counts.ipv4);
    fmt::print("{:<24}{:>12}\n", "IPv6 prefixes", counts.ipv6);
    fmt::print("{:<24}{:>12}\n\n",
               "state-synced",
               fmt::format("{} / {}",
                           counts.ipv4StateSynced ? "IPv4" : "IPv4 not yet",
                           counts.ipv6StateSynced ? "IPv6" : "IPv6 not yet"));
    const std::string server = listen_.reachable().text();
    const bool standardRoot = options_.root == AgentHost::HostConfig{}.root;
    const std::string root = standardRoot ? "" : " --root " + options_.root.string();
    const std::string pel = (ownDirectory() / "pel").string();
    const std::string at = server == "127.0.0.1:9339" ? "" : " --server " + server;
    fmt::print("gNMI    {} (clear text; Capabilities, Get, Subscribe)\n", listen_.text());
    if (!options_.once) {
        fmt::print(
            "try     {0} watch{1}\n        {0} watch --once{1} "
            "/network-instances/network-instance[name=DEFAULT]/afts/ipv4-unicast\n"
            "        {0} show status{2}\n        {0} show tasks{2}\nCtrl-C ends it.\n",
            pel,
            at,
            root);
    }
    std::fflush(stdout);
}

UpCommand::Next UpCommand::awaitEnd() {
    while (true) {
        const Next next = pause(milliseconds{500});
        if (next != Next::go) { return next; }
    }
}

void UpCommand::endChildren() {
    // The agent first, so that its clients are told; both have the same time.
    agent_.askToEnd();
    forwarder_.askToEnd();
    agent_.end(kEndTime);
    forwarder_.end(kEndTime);
}

}  // namespace Pel::Cli
