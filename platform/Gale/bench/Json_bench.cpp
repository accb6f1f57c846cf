// The JSON form of a next hop's Notification, beside the PROTO one that it is made from.

#include "platform/Gale/JsonConverter.h"
#include "platform/Gale/JsonForms.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/View.h"

#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <vector>

namespace Gale {
namespace {

constexpr const char* kNextHop =
    "openconfig-network-instance:network-instances/network-instance[name]/afts/next-hops/"
    "next-hop[index]";

/// A next hop with what most have: seven leaves.
class NextHopView final : public View {
public:
    const std::vector<ModelData>& models() const override { return models_; }
    const std::vector<EntryKind>& kinds() const override { return kinds_; }
    const std::vector<std::string>& emptyLeaves() const override { return none_; }
    std::size_t kindOf(Lane /*lane*/, const EntryKey& /*key*/) const override { return 0; }
    KeyPredicate keyPredicate(std::size_t /*kind*/, const KeyValues& /*values*/) const override {
        return {};
    }
    Reference referenceOf(std::uint64_t /*value*/) const override { return {}; }
    void encodeValue(Lane /*lane*/,
                     const EntryKey& /*key*/,
                     std::uint64_t value,
                     PackedNotification& notification) const override {
        const std::string index = std::to_string(value);
        const std::array<std::string_view, 2> keys{"DEFAULT", index};
        NotificationWriter writer{notification};
        writer.prefix(entry_, keys);
        writer.leaf(paths_[0], {}, value);
        writer.leaf(paths_[1], {}, value);
        writer.leaf(paths_[2], {}, std::string_view{"192.0.2.129"});
        writer.leaf(paths_[3], {}, std::string_view{"00:1c:73:00:00:01"});
        writer.leafList(paths_[4], {}, labels_);
        writer.leaf(paths_[5], {}, std::string_view{"Ethernet12/1"});
        writer.leaf(paths_[6], {}, std::uint64_t{100});
        writer.atomic();
    }
    void attach(SourceSink /*sink*/) override {}

private:
    const std::vector<ModelData> models_;
    const std::vector<std::string> none_;
    const std::vector<EntryKind> kinds_{{Lane::nextHops,
                                         kNextHop,
                                         {{"index", Leaf::Type::number64},
                                          {"state/index", Leaf::Type::number64},
                                          {"state/ip-address"},
                                          {"state/mac-address"},
                                          {"state/pushed-mpls-label-stack"},
                                          {"interface-ref/state/interface"},
                                          {"interface-ref/state/subinterface"}}}};
    const PathTemplate entry_{kNextHop, "openconfig"};
    const std::vector<PathTemplate> paths_ = [this] {
        std::vector<PathTemplate> all;
        for (const Leaf& leaf : kinds_[0].leaves) { all.emplace_back(leaf.path); }
        return all;
    }();
    const std::vector<NotificationWriter::Element> labels_{{16001, {}}, {0, "IPV4_EXPLICIT_NULL"}};
};

void encode(const NextHopView& view, std::uint64_t index, PackedNotification& to) {
    to.clear();
    to.stampIs(1'700'000'000'000'000'000);
    view.encodeValue(Lane::nextHops, {}, index, to);
}

void BM_NextHop_Proto(benchmark::State& state) {
    const NextHopView view;
    PackedNotification packed;
    std::uint64_t index = 1'000'000;
    for (auto _ : state) {
        encode(view, ++index, packed);
        benchmark::DoNotOptimize(packed.bytes().data());
    }
    state.counters["bytes"] = static_cast<double>(packed.bytes().size());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextHop_Proto);

/// What each subscriber pays, beside the least: the same bytes copied.
void BM_NextHop_Unpack(benchmark::State& state) {
    const NextHopView view;
    PackedNotification packed;
    encode(view, 1'000'000, packed);
    std::string to(4096, ' ');
    for (auto _ : state) {
        PackedNotification::unpack(packed.bytes(), std::span{to});
        benchmark::ClobberMemory();
    }
    state.counters["bytes"] = static_cast<double>(PackedNotification::unpackedSize(packed.bytes()));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextHop_Unpack);

void BM_NextHop_Copy(benchmark::State& state) {
    const NextHopView view;
    PackedNotification packed;
    encode(view, 1'000'000, packed);
    std::string bytes;
    PackedNotification::unpack(packed.bytes(), bytes);
    std::string to(4096, ' ');
    for (auto _ : state) {
        bytes.copy(to.data(), bytes.size());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextHop_Copy);

void BM_NextHop_JsonIetf(benchmark::State& state) {
    const NextHopView view;
    const Schema schema{view};
    JsonConverter converter{ValueEncoding::jsonIetf};
    PackedNotification packed;
    encode(view, 1'000'000, packed);
    std::string bytes;
    PackedNotification::unpack(packed.bytes(), bytes);
    std::string json;
    for (auto _ : state) {
        json.clear();
        converter.convert(schema.kinds()[0], bytes, json);
        benchmark::DoNotOptimize(json.data());
    }
    state.counters["bytes"] = static_cast<double>(json.size());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextHop_JsonIetf);

/// What a second subscriber pays.
void BM_NextHop_JsonShared(benchmark::State& state) {
    const NextHopView view;
    const Schema schema{view};
    JsonForms forms{ValueEncoding::jsonIetf, 64U << 20U};
    constexpr std::uint64_t kEntries = 10'000;
    std::vector<SharedBytes> entries;
    PackedNotification packed;
    for (std::uint64_t n = 0; n < kEntries; ++n) {
        encode(view, n, packed);
        entries.push_back(SharedBytes::copyOf(packed.bytes()));
        forms.of(schema.kinds()[0], entries.back());
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(forms.of(schema.kinds()[0], entries[next]).view().data());
        next = next + 1 < entries.size() ? next + 1 : 0;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_NextHop_JsonShared);

}  // namespace
}  // namespace Gale
