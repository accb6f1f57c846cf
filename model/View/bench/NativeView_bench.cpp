#include "model/View/NativeView.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <string_view>

#include "model/Aft/AftContainer.h"
#include "platform/Gale/Channel.h"
#include "platform/Gale/StampClock.h"
#include "platform/Kiln/YieldPolicy.h"

namespace Pel::OcApi {
namespace {

/// The thread's own time, so that a slice is not longer for what else runs on the machine.
class ThreadClock final : public Kiln::Clock {
public:
    Kiln::TimePoint now() const override {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return Kiln::TimePoint{std::chrono::seconds{time.tv_sec} +
                               std::chrono::nanoseconds{time.tv_nsec}};
    }
    std::int64_t wallNanoseconds() const override { return wall_.wallNanoseconds(); }

private:
    Kiln::SteadyClock wall_;
};

/// A tree of next hops and a quarter as many groups of four, behind a native channel. What goes to
/// the I/O thread is done at once.
class Tree {
public:
    explicit Tree(std::uint64_t nextHops) {
        aft_->nextHopGroupsIs();
        aft_->nextHopsIs();
        for (std::uint64_t i = 1; i <= nextHops; ++i) {
            NextHop hop;
            hop.index = NextHopIndex{i};
            hop.ipAddress = *Nexo::IpGenAddr::parse("192.0.2.1");
            hop.interface = Nexo::IntfId{"Ethernet1"};
            aft_->nextHops()->nextHopIs(hop);
        }
        for (std::uint64_t i = 1; i + 3 <= nextHops; i += 4) {
            NextHopGroup group;
            group.id = NextHopGroupId{i};
            for (std::uint64_t member = i; member < i + 4; ++member) {
                group.nextHops.nextHopInGroupIs({NextHopIndex{member}, 1});
            }
            aft_->nextHopGroups()->nextHopGroupIs(group);
        }
        Gale::ViewInputs inputs;
        inputs.root = root_;
        channel_ =
            std::make_unique<Gale::Channel>("pel", std::make_unique<NativeView>(inputs), [] {});
        const auto group = scheduler_->taskGroupIs("notify", 3, 0);
        Gale::LazyFill::Options options;
        options.makeProvider = [this, group](std::function<void()> onFilled) {
            return std::make_unique<Gale::Provider>(*channel_->view,
                                                    channel_->journal,
                                                    stamps_,
                                                    scheduler_,
                                                    group,
                                                    std::chrono::seconds{30},
                                                    std::move(onFilled));
        };
        options.toIoThread = [](const std::function<void()>& work) { work(); };
        channel_->lazyFill = Gale::LazyFill::make(*channel_, std::move(options), scheduler_, group);
    }

    void fill() {
        token_.emplace(channel_->demand, [] {});
        scheduler_->runUntilIdle();
    }
    void free() {
        token_.reset();
        scheduler_->runUntilIdle();
    }
    bool filled() const { return token_ && token_->filled(); }
    std::size_t entries() const {
        const auto statistics = channel_->journal.statistics();
        return statistics.entries[0] + statistics.entries[1];
    }
    double longestSliceMs(std::string_view task) const {
        double longest = 0;
        for (const Kiln::TaskStatistics& each : scheduler_->tasks()) {
            if (each.name != task) { continue; }
            longest = std::max(
                longest, std::chrono::duration<double, std::milli>(each.longestSlice).count());
        }
        return longest;
    }
    /// The limit: all entries encoded, one after the other, into the same text.
    std::size_t encodeOnly() {
        std::size_t count = 0;
        Gale::EncodedEntry entry;
        NativeView view{[this] {
            Gale::ViewInputs inputs;
            inputs.root = root_;
            return inputs;
        }()};
        view.attach([&](std::unique_ptr<Gale::ListSource> source) {
            for (auto key = source->nextKey({}); key; key = source->nextKey(key)) {
                entry.notification.clear();
                entry.references.clear();
                source->encode(*key, entry);
                benchmark::DoNotOptimize(entry.notification.bytes().data());
                ++count;
            }
        });
        view.detach();
        return count;
    }

private:
    const ThreadClock clock_;
    const Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::YieldByTime>());
    Gale::StampClock stamps_{clock_, {}};
    const Vel::Ref<Vel::Dir> root_ = Vel::make<Vel::Dir>("AftExport");
    const Vel::Ref<AftContainer> aft_ = root_->entityIs<Vel::Dir>("OpenConfig")
                                            ->entityIs<Vel::Dir>("afts")
                                            ->entityIs<AftContainer>("aftContainer");
    std::unique_ptr<Gale::Channel> channel_;
    std::optional<Gale::Demand::Token> token_;
};

void BM_NativeView_Fill(benchmark::State& state) {
    Tree tree{static_cast<std::uint64_t>(state.range(0))};
    for ([[maybe_unused]] const auto round : state) {
        tree.fill();
        state.PauseTiming();
        if (!tree.filled()) { state.SkipWithError("not filled"); }
        state.SetItemsProcessed(state.items_processed() +
                                static_cast<std::int64_t>(tree.entries()));
        state.counters["longestSliceMs"] =
            std::max(state.counters["longestSliceMs"].value, tree.longestSliceMs("GaleNotifyTask"));
        tree.free();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_NativeView_Fill)
    ->Arg(1000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond);

void BM_NativeView_Free(benchmark::State& state) {
    Tree tree{static_cast<std::uint64_t>(state.range(0))};
    for ([[maybe_unused]] const auto round : state) {
        state.PauseTiming();
        tree.fill();
        state.SetItemsProcessed(state.items_processed() +
                                static_cast<std::int64_t>(tree.entries()));
        state.ResumeTiming();
        tree.free();
        if (tree.entries() != 0) { state.SkipWithError("not free"); }
    }
    state.counters["longestSliceMs"] = tree.longestSliceMs("GaleEraseTask");
    state.counters["providersEndMs"] = tree.longestSliceMs("GaleLingerTask");
}
BENCHMARK(BM_NativeView_Free)
    ->Arg(1000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond);

void BM_NativeView_EncodeOnly(benchmark::State& state) {
    Tree tree{static_cast<std::uint64_t>(state.range(0))};
    for ([[maybe_unused]] const auto round : state) {
        state.SetItemsProcessed(state.items_processed() +
                                static_cast<std::int64_t>(tree.encodeOnly()));
    }
}
BENCHMARK(BM_NativeView_EncodeOnly)
    ->Arg(1000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Pel::OcApi
