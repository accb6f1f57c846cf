// From a filled store to a client that has everything: the agent is started on the store, the client
// streams until the whole AFT has come. Beside it the same answer from an agent that has exported all
// (walks and encoding apart), and the limit: the same bytes, ready in memory, over the same wire.

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include "PelOpenConfig/PelOpenConfigAgent.h"
#include "bench/FilledStore.h"
#include "bench/RawStream.h"
#include "model/Registration.h"
#include "model/View/OpenConfigView.h"
#include "platform/AgentHost/Host.h"
#include "test/support/TempDir.h"

namespace {

using Seconds = std::chrono::duration<double>;

const std::filesystem::path& filledRoot(std::uint64_t nextHops) {
    static std::map<std::uint64_t, std::unique_ptr<TestSupport::TempDir>> roots;
    auto& root = roots[nextHops];
    if (root == nullptr) {
        root = std::make_unique<TestSupport::TempDir>();
        Bench::fillStore(root->path(), nextHops);
    }
    return root->path();
}

struct Export {
    double toFull = 0;        // host started until the client had everything
    Bench::RawReply settled;  // a ONCE after that
    double longestSliceMs = 0;
};

/// Runs an agent over the store until a client has everything.
Export run(std::uint64_t nextHops) {
    AgentHost::HostConfig config;
    config.root = filledRoot(nextHops);
    config.gnmi.wire.port = 0;
    const Kiln::SteadyClock clock;
    const auto begun = clock.now();
    AgentHost::Host host{config, clock, std::make_unique<Kiln::YieldByTime>()};
    if (const std::string error = host.open(); !error.empty()) { throw std::runtime_error{error}; }
    if (const std::string error = host.start(agentFactory); !error.empty()) {
        throw std::runtime_error{error};
    }
    Export result;
    std::optional<std::jthread> client;
    Kiln::Task connect{host.scheduler(), "BenchConnect", 9, [&] {
                           const std::uint16_t port = host.agent()->gnmiPort();
                           if (port == 0) {
                               connect.scheduleAfter(std::chrono::milliseconds{1});
                               return false;
                           }
                           client.emplace([&, port] {
                               Bench::subscribeUntil(port, Bench::entriesOf(nextHops));
                               result.toFull = Seconds{clock.now() - begun}.count();
                               result.settled = Bench::subscribeOnce(port);
                               host.scheduler()->stop();
                           });
                           return false;
                       }};
    connect.schedule();
    host.scheduler()->run();
    client.reset();
    for (const Kiln::TaskStatistics& task : host.scheduler()->tasks()) {
        const double ms = static_cast<double>(task.longestSlice.count()) / 1e6;
        result.longestSliceMs = std::max(result.longestSliceMs, ms);
    }
    host.stop();
    return result;
}

void BM_Export_StoreToSync(benchmark::State& state) {
    Pel::registerModelTypes();
    Pel::OcApi::registerOpenConfigView();
    const auto nextHops = static_cast<std::uint64_t>(state.range(0));
    filledRoot(nextHops);
    Export last;
    double limit = 0;
    for (auto _ : state) {
        last = run(nextHops);
        limit = Bench::replay(last.settled).seconds;
        state.SetIterationTime(last.toFull);
    }
    state.SetItemsProcessed(state.iterations() *
                            static_cast<std::int64_t>(Bench::entriesOf(nextHops)));
    state.counters["settled_s"] = last.settled.seconds;
    state.counters["limit_s"] = limit;
    state.counters["to_limit"] = last.toFull / limit;
    state.counters["settled_to_limit"] = last.settled.seconds / limit;
    state.counters["MB"] = static_cast<double>(last.settled.bytes.size()) / 1e6;
    state.counters["longest_slice_ms"] = last.longestSliceMs;
}
BENCHMARK(BM_Export_StoreToSync)
    ->Arg(10'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
