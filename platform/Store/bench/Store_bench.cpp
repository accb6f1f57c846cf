#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/KeyedMount.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Store {
namespace {

constexpr std::size_t kRecordBytes = 200;

class CountingMount final : public KeyedMount<std::uint64_t> {
public:
    using KeyedMount::mountIs;
    using KeyedMount::readBytes;
    std::uint64_t told = 0;

private:
    void changed(const std::uint64_t& /*key*/) override { ++told; }
};

/// A store with one table of so many records.
struct Filled {
    explicit Filled(std::int64_t records) {
        options.directory = dir.path() / "store";
        std::string error;
        writer = std::make_unique<Writer>(Environment::open(options, Access::write, error));
        table = writer->tableIs("t", "t", TableKind::table);
        writeAll(records, 'a');
    }
    void writeAll(std::int64_t records, char letter) {
        const std::string value(kRecordBytes, letter);
        for (std::int64_t key = 0; key < records; ++key) {
            writer->put(
                table, KeyCodec<std::uint64_t>::encode(static_cast<std::uint64_t>(key)), value);
            if (writer->pending() >= Writer::kMaxRecords) { commit(); }
        }
        commit();
    }
    void commit() {
        if (const std::string error = writer->commit(); !error.empty()) {
            throw std::runtime_error{error};
        }
    }
    TestSupport::TempDir dir;
    Options options;
    std::unique_ptr<Writer> writer;
    TableId table = 0;
    Kiln::SteadyClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
};

void items(benchmark::State& state) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

/// Yardstick: a copy of the records' bytes from ordinary memory, in key order.
void BM_Memory_Copy(benchmark::State& state) {
    const auto records = static_cast<std::size_t>(state.range(0));
    const std::string from(records * kRecordBytes, 'a');
    std::string to(kRecordBytes, '\0');
    for (auto _ : state) {
        for (std::size_t i = 0; i < records; ++i) {
            std::memcpy(to.data(), &from[i * kRecordBytes], kRecordBytes);
            benchmark::DoNotOptimize(to.data());
            benchmark::ClobberMemory();
        }
    }
    items(state);
}
BENCHMARK(BM_Memory_Copy)->Arg(100'000);

void BM_Writer_PutAndCommit(benchmark::State& state) {
    Filled store{state.range(0)};
    char letter = 'b';
    for (auto _ : state) { store.writeAll(state.range(0), ++letter); }
    items(state);
}
BENCHMARK(BM_Writer_PutAndCommit)->Arg(100'000);

void BM_Writer_PutEqual(benchmark::State& state) {
    Filled store{state.range(0)};
    for (auto _ : state) { store.writeAll(state.range(0), 'a'); }
    items(state);
}
BENCHMARK(BM_Writer_PutEqual)->Arg(100'000);

void BM_Writer_CommitOne(benchmark::State& state) {
    Filled store{1};
    std::uint64_t n = 0;
    for (auto _ : state) {
        store.writer->put(store.table, KeyCodec<std::uint64_t>::encode(0), std::to_string(++n));
        store.commit();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(BM_Writer_CommitOne);

/// Reads and copies each record, in the given order of keys.
void readAll(benchmark::State& state, bool inOrder) {
    Filled store{state.range(0)};
    const auto reader = Vel::make<Reader>(store.scheduler, store.options);
    CountingMount mount;
    mount.mountIs(*reader, "t", "t", TableKind::table);
    store.scheduler->runUntilIdle();
    std::vector<std::uint64_t> keys{mount.keys().begin(), mount.keys().end()};
    if (!inOrder) { std::shuffle(keys.begin(), keys.end(), std::mt19937_64{1}); }
    std::string to(kRecordBytes, '\0');
    for (auto _ : state) {
        for (const std::uint64_t key : keys) {
            const auto bytes = mount.readBytes(key);
            std::memcpy(to.data(), bytes->data(), kRecordBytes);
            benchmark::DoNotOptimize(to.data());
            benchmark::ClobberMemory();
        }
    }
    items(state);
}
void BM_Reader_ReadInKeyOrder(benchmark::State& state) {
    readAll(state, true);
}
BENCHMARK(BM_Reader_ReadInKeyOrder)->Arg(100'000);
void BM_Reader_ReadInRandomOrder(benchmark::State& state) {
    readAll(state, false);
}
BENCHMARK(BM_Reader_ReadInRandomOrder)->Arg(100'000);

void BM_Pump_Sweep(benchmark::State& state) {
    Filled store{state.range(0)};
    for (auto _ : state) {
        const auto reader = Vel::make<Reader>(store.scheduler, store.options);
        CountingMount mount;
        mount.mountIs(*reader, "t", "t", TableKind::table);
        store.scheduler->runUntilIdle();
        if (!reader->caughtUp()) { state.SkipWithError("not caught up"); }
    }
    items(state);
}
BENCHMARK(BM_Pump_Sweep)->Arg(100'000);

void BM_Pump_Changes(benchmark::State& state) {
    Filled store{state.range(0)};
    const auto reader = Vel::make<Reader>(store.scheduler, store.options);
    CountingMount mount;
    mount.mountIs(*reader, "t", "t", TableKind::table);
    store.scheduler->runUntilIdle();
    char letter = 'b';
    for (auto _ : state) {
        state.PauseTiming();
        store.writeAll(state.range(0), ++letter);
        state.ResumeTiming();
        store.scheduler->runUntilIdle();
    }
    if (mount.told != static_cast<std::uint64_t>(state.iterations() * state.range(0))) {
        state.SkipWithError("not all changes were told");
    }
    items(state);
    for (const Kiln::TaskStatistics& task : store.scheduler->tasks()) {
        if (task.name == "StorePump") {
            state.counters["longestSliceUs"] =
                std::chrono::duration<double, std::micro>(task.longestSlice).count();
        }
    }
}
BENCHMARK(BM_Pump_Changes)->Arg(100'000);

}  // namespace
}  // namespace Store
