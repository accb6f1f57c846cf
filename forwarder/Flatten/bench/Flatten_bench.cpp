#include <benchmark/benchmark.h>

#include <time.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <string>

#include "forwarder/Flatten/Flatten.h"

namespace Pel::Forwarder {

namespace {

constexpr std::uint32_t kLinks = 64;
constexpr std::uint32_t kMembers = 4;

Nexo::IpGenAddr address(std::uint32_t number) {
    std::array<std::uint8_t, 4> bytes{};
    for (unsigned i = 0; i < 4; ++i) {
        bytes[i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    }
    return Nexo::IpGenAddr{bytes};
}

/// `groups` groups of four members each, and two routes a group.
std::unique_ptr<Fib> makeFib(std::uint32_t groups) {
    auto fib = std::make_unique<Fib>();
    for (std::uint32_t i = 1; i <= kLinks; ++i) {
        Link link;
        link.ifindex = i;
        link.name = "e" + std::to_string(i);
        link.up = link.running = true;
        fib->apply(link);
    }
    for (std::uint32_t i = 0; i < 4096; ++i) {
        Nexthop nexthop;
        nexthop.id = 1 + i;
        nexthop.path.ifindex = 1 + i % kLinks;
        nexthop.path.gateway = address(0x0A000000 + i);
        fib->apply(nexthop);
    }
    for (std::uint32_t g = 0; g < groups; ++g) {
        Nexthop group;
        group.id = 10000 + g;
        group.isGroup = true;
        for (std::uint32_t m = 0; m < kMembers; ++m) {
            group.group.push_back({1 + (g * 31 + m * 977) % 4096, 1 + m, 0});
        }
        fib->apply(group);
        for (std::uint32_t r = 0; r < 2; ++r) {
            Route route;
            route.table = Fib::kMainTable;
            route.prefix = Nexo::IpPrefix(address((g * 2 + r) << 8), 24);
            route.type = RouteType::Unicast;
            route.nexthopId = group.id;
            fib->apply(route, RouteMode::Replace);
        }
    }
    return fib;
}

std::size_t settle(Flatten& flatten) {
    std::size_t total = 0;
    FlatDiff diff;
    for (bool more = true; more;) {
        diff.clear();
        more = flatten.collect(diff, 1024);
        total += diff.size();
    }
    return total;
}

void BM_Flatten_Everything(benchmark::State& state) {
    const auto groups = static_cast<std::uint32_t>(state.range(0));
    std::size_t records = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const auto fib = makeFib(groups);
        Flatten flatten{*fib};
        state.ResumeTiming();
        records += settle(flatten);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(records));
}
BENCHMARK(BM_Flatten_Everything)->Arg(1000)->Arg(25000)->Arg(250000)->Unit(benchmark::kMillisecond);

/// One group's weight changes; the work must not depend on how many groups there are.
void BM_Flatten_OneGroup(benchmark::State& state) {
    const auto fib = makeFib(static_cast<std::uint32_t>(state.range(0)));
    Flatten flatten{*fib};
    settle(flatten);
    std::uint32_t weight = 1;
    for (auto _ : state) {
        Nexthop group;
        group.id = 10000;
        group.isGroup = true;
        weight = weight % 60000 + 1;
        for (std::uint32_t m = 0; m < kMembers; ++m) {
            group.group.push_back({1 + m * 977, weight, 0});
        }
        fib->apply(group);
        benchmark::DoNotOptimize(settle(flatten));
    }
}
BENCHMARK(BM_Flatten_OneGroup)->Arg(1000)->Arg(250000);

double threadMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double anonymousMegabytes() {
    std::ifstream status{"/proc/self/status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) { return std::stod(line.substr(8)) / 1024; }
    }
    return 0;
}

/// The longest slice (CPU of this thread) of a full collection with a budget of 1,024, and what model and flattening
/// occupy at its end.
void BM_Flatten_LongestSlice(benchmark::State& state) {
    double longest = 0;
    double megabytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const double before = anonymousMegabytes();
        const auto fib = makeFib(static_cast<std::uint32_t>(state.range(0)));
        Flatten flatten{*fib};
        FlatDiff diff;
        state.ResumeTiming();
        for (bool more = true; more;) {
            diff.clear();
            const double begin = threadMicroseconds();
            more = flatten.collect(diff, 1024);
            longest = std::max(longest, threadMicroseconds() - begin);
        }
        megabytes = anonymousMegabytes() - before;
    }
    state.counters["longest_us"] = longest;
    state.counters["rss_anon_mb"] = megabytes;
}
BENCHMARK(BM_Flatten_LongestSlice)->Arg(250000)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Pel::Forwarder
