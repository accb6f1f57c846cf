#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include "PelOpenConfig/PelOpenConfigAgent.h"
#include "apps/cli/ConfigStore.h"
#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "bench/RawClient.h"
#include "bench/SliceMeter.h"
#include "model/Aft/AftContainer.h"
#include "model/Registration.h"
#include "model/View/OpenConfigView.h"
#include "platform/AgentHost/Host.h"

namespace Bench {
namespace {

constexpr Kiln::TaskPriority kWhenAllElseIsIdle = 99;
constexpr Kiln::TaskPriority kReload = 6;

/// A sweep: how it is brought about, and how to see that it is over once the scheduler is idle.
struct Sweep {
    std::string name;
    std::function<void()> begin;
    std::function<bool()> over;
};

/// An agent that is led through all its sweeps, with a client that takes all there is.
class Sweeps {
public:
    Sweeps(const Setting& setting, std::uint64_t groups);
    Json run();

private:
    bool step();
    void addAll();
    void swapStore(const char* aside, const char* by);
    void enabledIs(bool enabled);
    bool holds(bool all) const;
    void startClient();
    void record(const std::string& name, double seconds);

    const Setting& setting_;
    const std::uint64_t groups_;
    const std::filesystem::path root_;
    Kiln::SteadyClock clock_;
    SliceMeter* meter_ = nullptr;
    std::optional<AgentHost::Host> host_;
    std::deque<Sweep> sweeps_;
    bool begun_ = false;
    Kiln::TimePoint since_{};
    std::uint64_t generation_ = 0;
    std::optional<Kiln::Task> reload_;
    std::optional<Kiln::Task> steps_;
    std::atomic<bool> stopping_{false};
    std::optional<std::jthread> client_;
    Json result_ = Json::array();
};

AgentHost::HostConfig hostConfig(const std::filesystem::path& root) {
    AgentHost::HostConfig config;
    config.root = root;
    config.gnmi.wire.port = 0;
    return config;
}

Sweeps::Sweeps(const Setting& setting, std::uint64_t groups)
    : setting_{setting}, groups_{groups}, root_{setting.root} {
    auto meter = std::make_unique<SliceMeter>();
    meter_ = meter.get();
    host_.emplace(hostConfig(root_), clock_, std::move(meter));
    meter_->watch(host_->scheduler());
    if (const std::string error = host_->open(); !error.empty()) {
        throw std::runtime_error{error};
    }
    reload_.emplace(host_->scheduler(), "ConfigReload", kReload, [this] {
        host_->agent()->doReinitialize();
        return false;
    });
    steps_.emplace(host_->scheduler(), "Bench", kWhenAllElseIsIdle, [this] { return step(); });
    addAll();
}

/// Puts the store that is there aside, and another one (none: none) in its place.
void Sweeps::swapStore(const char* aside, const char* by) {
    generation_ = host_->stateReader().generation();
    const auto state = root_ / "state";
    if (aside != nullptr) { std::filesystem::rename(state, root_ / aside); }
    if (by != nullptr) { std::filesystem::rename(root_ / by, state); }
}

void Sweeps::enabledIs(bool enabled) {
    const std::string error = Pel::Cli::ConfigStore{root_}.aftExportEnabledIs(enabled);
    if (!error.empty()) { throw std::runtime_error{error}; }
    reload_->scheduleAfter(std::chrono::milliseconds{50});
}

/// Whether the export has all next hops and groups, or none.
bool Sweeps::holds(bool all) const {
    Vel::Ref<Vel::Dir> dir = host_->entityManager()->globalDir();
    for (const char* const name :
         {host_->entityManager()->name().c_str(), "AftExport", "OpenConfig", "afts"}) {
        dir = dir ? dir->entity<Vel::Dir>(name) : dir;
    }
    const auto aft = dir ? dir->entity<Pel::OcApi::AftContainer>("aftContainer") : nullptr;
    return aft && aft->nextHops()->size() == (all ? setting_.nextHops : 0) &&
           aft->nextHopGroups()->size() == (all ? groups_ : 0);
}

void Sweeps::addAll() {
    const Store::Reader& state = host_->stateReader();
    const auto swept = [this, &state](bool all) {
        return state.open() && state.generation() != generation_ && state.caughtUp() && holds(all);
    };
    sweeps_.push_back({"initial export",
                       [this] {
                           const std::string error = host_->start(agentFactory);
                           if (!error.empty()) { throw std::runtime_error{error}; }
                       },
                       [=] { return swept(true); }});
    sweeps_.push_back({"stash not ready",
                       [this] { swapStore("kept", nullptr); },
                       [&state] { return !state.open(); }});
    sweeps_.push_back(
        {"stash ready again", [this] { swapStore(nullptr, "kept"); }, [=] { return swept(true); }});
    sweeps_.push_back({"disabled", [this] { enabledIs(false); }, [this] { return holds(false); }});
    sweeps_.push_back({"enabled", [this] { enabledIs(true); }, [this] { return holds(true); }});
    sweeps_.push_back({"store replaced by its like",
                       [this] { swapStore("kept", "like/state"); },
                       [=] { return swept(true); }});
    sweeps_.push_back({"store replaced by an empty one",
                       [this] { swapStore("like/state", "empty/state"); },
                       [=] { return swept(false); }});
    sweeps_.push_back({"filled again",
                       [this] { swapStore("empty/state", "kept"); },
                       [=] { return swept(true); }});
}

void Sweeps::startClient() {
    const std::uint16_t port = host_->agent() ? host_->agent()->gnmiPort() : std::uint16_t{0};
    if (client_ || port == 0) { return; }
    client_.emplace([this, port] {
        RawClient client{port, kSubscribe, subscribeRequest(Mode::stream)};
        while (!stopping_ && !client.ended()) { client.read(std::chrono::milliseconds{100}); }
    });
}

void Sweeps::record(const std::string& name, double seconds) {
    for (const auto& [task, slices] : meter_->take()) {
        if (task == "Bench") { continue; }
        result_.push_back({{"sweep", name},
                           {"seconds", seconds},
                           {"task", task},
                           {"longest_ms", slices.longestMs},
                           {"longest_cpu_ms", slices.longestCpuMs},
                           {"cpu_ms", slices.cpuMs},
                           {"slices", slices.slices}});
    }
}

/// Runs whenever nothing else does.
bool Sweeps::step() {
    steps_->scheduleAfter(std::chrono::milliseconds{5});
    Sweep& sweep = sweeps_.front();
    startClient();
    if (!begun_) {
        begun_ = true;
        meter_->take();
        since_ = clock_.now();
        sweep.begin();
        return false;
    }
    if (!sweep.over()) { return false; }
    record(sweep.name, std::chrono::duration<double>(clock_.now() - since_).count());
    begun_ = false;
    sweeps_.pop_front();
    if (sweeps_.empty()) {
        steps_->unschedule();
        host_->scheduler()->stop();
    }
    return false;
}

Json Sweeps::run() {
    steps_->schedule();
    host_->scheduler()->run();
    const auto begun = clock_.now();
    host_->stop();
    result_.push_back({{"sweep", "taken down"},
                       {"seconds", std::chrono::duration<double>(clock_.now() - begun).count()}});
    stopping_ = true;
    client_.reset();
    return result_;
}

}  // namespace

Json sweptSlices(const Setting& setting, std::uint64_t groups) {
    Pel::registerModelTypes();
    Pel::OcApi::registerOpenConfigView();
    return Sweeps{setting, groups}.run();
}

Json sliceFigures(const Setting& setting) {
    fillStore(setting.root / "like", setting.nextHops);
    fillStore(setting.root / "empty", 0);
    return sweptSlices(setting, setting.nextHops / 4);
}

}  // namespace Bench
