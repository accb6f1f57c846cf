#include "test/processes/RunningSystem.h"

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <system_error>
#include <thread>

#include "apps/cli/ConfigStore.h"
#include "apps/cli/ControlClient.h"

namespace TestProcesses {

using nlohmann::json_literals::operator""_json_pointer;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds kStartTime{120'000};
constexpr milliseconds kEndTime{60'000};

}  // namespace

RunningSystem::RunningSystem() = default;

RunningSystem::~RunningSystem() {
    forwarder_.end(kEndTime);
    agent_.end(kEndTime);
    std::error_code ignored;
    if (!root_.empty()) { std::filesystem::remove_all(root_, ignored); }
}

std::string RunningSystem::startAgent() {
    std::string name = "/dev/shm/pel-processes-XXXXXX";
    if (::mkdtemp(name.data()) == nullptr) { return "no directory can be made in /dev/shm"; }
    root_ = name;
    if (std::string error = Pel::Cli::ConfigStore{root_}.aftExportEnabledIs(true); !error.empty()) {
        return error;
    }
    const std::filesystem::path here = programDirectory();
    const std::filesystem::path plugin = here / ".." / "lib" / "libPelOpenConfigAgent.so";
    if (std::string error = agent_.start({(here / "pel-agentd").string(),
                                          "--root",
                                          name,
                                          "--plugin",
                                          plugin.string(),
                                          "--listen",
                                          "127.0.0.1:0"});
        !error.empty()) {
        return error;
    }
    waitUntil(kStartTime, [this] {
        const auto status = nlohmann::json::parse(ask("status"), nullptr, false);
        if (status.is_object()) {
            port_ = status.value("/gnmi/port"_json_pointer, std::uint16_t{0});
        }
        return port_ != 0 || agent_.ended();
    });
    return port_ != 0 ? std::string{} : "the agent's server does not come up";
}

std::string RunningSystem::startForwarder(const std::vector<std::string>& source) {
    std::vector<std::string> arguments{(programDirectory() / "pel-forwarderd").string(),
                                       "--root",
                                       root_.string(),
                                       "--source",
                                       "scenario"};
    arguments.insert(arguments.end(), source.begin(), source.end());
    forwarding_ = true;
    return forwarder_.start(arguments);
}

std::string RunningSystem::stopForwarder() {
    forwarding_ = false;
    const std::string how = forwarder_.end(kEndTime);
    return how == "ended with 0" ? std::string{} : forwarder_.name() + " " + how;
}

std::string RunningSystem::died() {
    if (const auto how = agent_.ended()) { return agent_.name() + " " + *how; }
    const auto how = forwarding_ ? forwarder_.ended() : std::nullopt;
    return how ? forwarder_.name() + " " + *how : std::string{};
}

std::string RunningSystem::ask(const std::string& command) const {
    return Pel::Cli::ControlClient{root_, milliseconds{10'000}}.ask(command, true).output;
}

std::filesystem::path programDirectory() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

void pauseBriefly() {
    std::this_thread::sleep_for(milliseconds{20});
}

}  // namespace TestProcesses
