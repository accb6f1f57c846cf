#include "model/View/OpenConfigView.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "model/Aft/AftContainer.h"

namespace Pel::OcApi {
namespace {

constexpr std::uint64_t kNextHops = 10'000;

/// Encodes all next hops of a tree, one after the other, into the same text.
class NextHops {
public:
    explicit NextHops(const EncapHeaderContainer& headers) {
        aft_->nextHopGroupsIs();
        aft_->nextHopsIs();
        for (std::uint64_t i = 1; i <= kNextHops; ++i) {
            NextHop hop;
            hop.index = NextHopIndex{i};
            hop.ipAddress = *Nexo::IpGenAddr::parse("192.0.2.1");
            hop.interface = Nexo::IntfId{"Ethernet1"};
            hop.encapHeaders = headers;
            aft_->nextHops()->nextHopIs(hop);
        }
        Gale::ViewInputs inputs;
        inputs.root = root_;
        inputs.defaultInstance = "DEFAULT";
        view_ = std::make_unique<OpenConfigView>(inputs);
        view_->attach([this](std::unique_ptr<Gale::ListSource> source) {
            if (source->lane() == Gale::Lane::nextHops) { source_ = std::move(source); }
        });
    }
    ~NextHops() { source_.reset(); }
    NextHops(const NextHops&) = delete;
    NextHops& operator=(const NextHops&) = delete;

    void encode() {
        for (std::uint64_t i = 1; i <= kNextHops; ++i) {
            entry_.notification.clear();
            entry_.references.clear();
            source_->encode({0, 0, i}, entry_);
            benchmark::DoNotOptimize(entry_);
        }
    }

private:
    const Vel::Ref<Vel::Dir> root_ = Vel::make<Vel::Dir>("AftExport");
    const Vel::Ref<AftContainer> aft_ = root_->entityIs<Vel::Dir>("OpenConfig")
                                            ->entityIs<Vel::Dir>("afts")
                                            ->entityIs<AftContainer>("aftContainer");
    std::unique_ptr<OpenConfigView> view_;
    std::unique_ptr<Gale::ListSource> source_;
    Gale::EncodedEntry entry_;
};

void encode(benchmark::State& state, const EncapHeaderContainer& headers) {
    NextHops nextHops{headers};
    for ([[maybe_unused]] const auto round : state) { nextHops.encode(); }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kNextHops));
}

/// The common case, and the limit of the others.
void BM_OpenConfigView_EncodePlain(benchmark::State& state) {
    encode(state, {});
}
BENCHMARK(BM_OpenConfigView_EncodePlain)->Unit(benchmark::kMillisecond);

void BM_OpenConfigView_EncodeMplsInUdp(benchmark::State& state) {
    MplsState mpls;
    mpls.mplsLabelStackPush(Nexo::MplsLabel{200});
    mpls.mplsLabelStackPush(Nexo::MplsLabel{100});
    EncapHeaderContainer headers;
    headers.encapHeaderIs({0, EncapHeaderType::mpls, mpls});
    headers.encapHeaderIs({1,
                           EncapHeaderType::udpv4,
                           UdpState{*Nexo::IpGenAddr::parse("192.0.2.7"),
                                    *Nexo::IpGenAddr::parse("198.51.100.7"),
                                    std::uint8_t{64}}});
    encode(state, headers);
}
BENCHMARK(BM_OpenConfigView_EncodeMplsInUdp)->Unit(benchmark::kMillisecond);

void BM_OpenConfigView_EncodeVxlan(benchmark::State& state) {
    EncapHeaderContainer headers;
    headers.encapHeaderIs(
        {0, EncapHeaderType::vxlan, VxlanState{*Nexo::IpGenAddr::parse("192.0.2.3"), 5000}});
    encode(state, headers);
}
BENCHMARK(BM_OpenConfigView_EncodeVxlan)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Pel::OcApi
