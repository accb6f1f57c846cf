// What the journal costs for each entry, beside the yardstick of the same run: a plain ordered map.

#include "platform/Gale/Cursor.h"
#include "platform/Gale/Journal.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <map>
#include <memory>
#include <vector>

namespace Gale {
namespace {

constexpr std::uint64_t kEntries = 1'000'000;
constexpr std::size_t kSize = 200;  // bytes of a usual next hop's message

EntryKey keyOf(std::uint64_t n) {
    return {0, 0, n};
}

/// Spreads consecutive numbers over all of 64 bits, without repeats.
std::uint64_t scatter(std::uint64_t n) {
    return n * 0x9E3779B97F4A7C15ULL;
}

std::unique_ptr<Journal> filled(std::string& bytes) {
    auto journal = std::make_unique<Journal>();
    bytes.assign(kSize, 'x');
    for (std::uint64_t n = 0; n < kEntries; ++n) {
        journal->update(Lane::nextHops, keyOf(n), bytes);
    }
    return journal;
}

std::size_t drain(Cursor& cursor) {
    std::vector<CursorMessage> out(256);
    std::size_t total = 0;
    for (Cursor::Result got{0, Cursor::State::more}; got.state == Cursor::State::more;) {
        got = cursor.next(out);
        total += got.count;
    }
    return total;
}

/// Argument: number of cursors at rest beside; each change is read at once by none of them.
void BM_Journal_Update(benchmark::State& state) {
    std::string bytes;
    const auto journal = filled(bytes);
    std::vector<std::unique_ptr<Cursor>> cursors;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        cursors.push_back(
            std::make_unique<Cursor>(*journal, CursorFilter{}, Cursor::Mode::updatesOnly));
    }
    std::uint64_t n = 0;
    for (auto _ : state) {
        bytes[0] = static_cast<char>(n / kEntries + n);
        journal->update(Lane::nextHops, keyOf(scatter(n++) % kEntries), bytes);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Journal_Update)->Arg(0)->Arg(1)->Arg(64);

/// The sweep after a restart: nothing has changed.
void BM_Journal_UpdateEqual(benchmark::State& state) {
    std::string bytes;
    const auto journal = filled(bytes);
    std::uint64_t n = 0;
    for (auto _ : state) { journal->update(Lane::nextHops, keyOf(n++ % kEntries), bytes, 10); }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Journal_UpdateEqual);

/// Initial set of a million entries, 256 for each call.
void BM_Cursor_InitialSet(benchmark::State& state) {
    std::string bytes;
    const auto journal = filled(bytes);
    for (auto _ : state) {
        Cursor cursor{*journal, {}, Cursor::Mode::once};
        if (drain(cursor) != kEntries + 1) { state.SkipWithError("entries are missing"); }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kEntries));
}
BENCHMARK(BM_Cursor_InitialSet)->Unit(benchmark::kMillisecond);

/// Yardstick: the same entries out of a std::map, with their bytes copied.
void BM_Map_Copy(benchmark::State& state) {
    std::map<std::uint64_t, std::string> map;
    for (std::uint64_t n = 0; n < kEntries; ++n) { map[n] = std::string(kSize, 'x'); }
    for (auto _ : state) {
        for (const auto& [key, bytes] : map) {
            std::string copy = bytes;
            benchmark::DoNotOptimize(copy.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kEntries));
}
BENCHMARK(BM_Map_Copy)->Unit(benchmark::kMillisecond);

/// A million changes that came while the cursor was away.
void BM_Cursor_LiveEpoch(benchmark::State& state) {
    std::string bytes;
    const auto journal = filled(bytes);
    Cursor cursor{*journal, {}, Cursor::Mode::updatesOnly};
    drain(cursor);
    for (auto _ : state) {
        state.PauseTiming();
        ++bytes[0];
        {
            const Journal::Batch batch{*journal};
            for (std::uint64_t n = 0; n < kEntries; ++n) {
                journal->update(Lane::nextHops, keyOf(n), bytes);
            }
        }
        state.ResumeTiming();
        if (drain(cursor) != kEntries) { state.SkipWithError("changes are missing"); }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kEntries));
}
BENCHMARK(BM_Cursor_LiveEpoch)->Unit(benchmark::kMillisecond);

/// Heap for each prefix (a value), keys in order (0) or scattered (1).
void BM_Journal_MemoryOfPrefix(benchmark::State& state) {
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks;
        Journal journal;
        for (std::uint64_t n = 0; n < kEntries; ++n) {
            journal.updateValue(
                Lane::prefixes, keyOf(state.range(0) == 0 ? n : scatter(n)), n % 1000, 1);
        }
        state.counters["bytes_per_entry"] =
            static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(kEntries);
    }
}
BENCHMARK(BM_Journal_MemoryOfPrefix)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);

/// Heap for each next hop beyond the 200 bytes of its message.
void BM_Journal_MemoryOfNextHop(benchmark::State& state) {
    for (auto _ : state) {
        std::string bytes;
        const std::size_t before = mallinfo2().uordblks;
        const auto journal = filled(bytes);
        state.counters["bytes_per_entry_beyond_message"] =
            static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(kEntries) -
            kSize;
    }
}
BENCHMARK(BM_Journal_MemoryOfNextHop)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace Gale
