#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "forwarder/Scenario/Generator.h"
#include "forwarder/Scenario/ScenarioPublish.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {
namespace {

std::unique_ptr<Store::Writer> openWriter(const TestSupport::TempDir& dir, int run) {
    Store::Options options;
    options.directory = dir.path() / std::to_string(run);
    options.mapBytes = std::size_t{4} << 30U;
    std::string error;
    auto environment = Store::Environment::open(options, Store::Access::write, error);
    if (environment == nullptr) { throw std::runtime_error{error}; }
    return std::make_unique<Store::Writer>(std::move(environment));
}

GeneratorOptions sized(std::int64_t nextHops) {
    const auto count = static_cast<std::uint64_t>(nextHops);
    return {count, count / 4, 0, 0, 1};
}

void items(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0) * 5 / 4);
}

/// Making the records of next hops and groups, and nothing else.
void BM_Generator_Describe(benchmark::State& state) {
    for (auto _ : state) {
        Generator generator{sized(state.range(0))};
        Changes batch;
        while (generator.describe(batch, 512)) {
            benchmark::DoNotOptimize(batch.data());
            batch.clear();
        }
    }
    items(state);
}
BENCHMARK(BM_Generator_Describe)->Arg(100'000)->Unit(benchmark::kMillisecond);

/// Yardstick: the same records, put into one table by the bare writer.
void BM_Writer_PutTheSame(benchmark::State& state) {
    int run = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const TestSupport::TempDir dir;
        const auto writer = openWriter(dir, ++run);
        const auto table = writer->tableIs("t", "t", Store::TableKind::table);
        Generator generator{sized(state.range(0))};
        Changes batch;
        std::uint64_t key = 0;
        state.ResumeTiming();
        while (generator.describe(batch, 512)) {
            for (const Change& change : batch) {
                const auto* hop = std::get_if<NextHopItem>(&change);
                const auto* fec = std::get_if<FecItem>(&change);
                const std::string none;
                const std::string& content = hop != nullptr   ? hop->content
                                             : fec != nullptr ? fec->content
                                                              : none;
                writer->put(table, Store::KeyCodec<std::uint64_t>::encode(++key), content);
                if (writer->pending() >= Store::Writer::kMaxRecords) { (void)writer->commit(); }
            }
            batch.clear();
        }
        if (!writer->commit().empty()) { state.SkipWithError("commit"); }
    }
    items(state);
}
BENCHMARK(BM_Writer_PutTheSame)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

void publishAll(benchmark::State& state, bool again) {
    int run = 0;
    const Kiln::SteadyClock clock;
    std::uint64_t transactions = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const TestSupport::TempDir dir;
        const auto writer = openWriter(dir, ++run);
        for (int turn = again ? 0 : 1; turn < 2; ++turn) {
            Generator generator{sized(state.range(0))};
            ScenarioPublish publish{generator, *writer, clock};
            if (turn == 1) { state.ResumeTiming(); }
            if (!publish.open().empty()) { state.SkipWithError("open"); }
            while (publish.run([] { return false; })) {}
            if (!publish.ready()) { state.SkipWithError(publish.failure().c_str()); }
            transactions = publish.statistics().transactions;
        }
        state.PauseTiming();
        state.counters["transactions"] = static_cast<double>(transactions);
        state.counters["storeMb"] =
            static_cast<double>(writer->environment().usedBytes()) / (1 << 20);
        state.ResumeTiming();
    }
    items(state);
}

/// Next hops and groups into an empty store: five records of the store for each.
void BM_ScenarioPublish_First(benchmark::State& state) {
    publishAll(state, false);
}
BENCHMARK(BM_ScenarioPublish_First)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

/// The same once more: everything is there already.
void BM_ScenarioPublish_Restart(benchmark::State& state) {
    publishAll(state, true);
}
BENCHMARK(BM_ScenarioPublish_Restart)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Pel::Forwarder
