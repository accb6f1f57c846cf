#pragma once

#include <cstdint>
#include <memory>

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "platform/Stash/Publisher.h"
#include "test/support/TempDir.h"

namespace Pel::Oc {

/// The time that the calling thread has worked: slices last as long as on a machine of one's own,
/// whatever else this one does.
class ThreadTimeClock final : public Kiln::Clock {
public:
    Kiln::TimePoint now() const override;
    std::int64_t wallNanoseconds() const override { return steady_.wallNanoseconds(); }

private:
    Kiln::SteadyClock steady_;
};

/// A flattened set of any size in a store, its mount, and a scheduler whose slices are those of the
/// product: for benches and tests at scale.
class PublishedExport {
public:
    using FillNextHop = void (*)(std::uint64_t id, Stash::FlattenFecNextHop& to);
    static constexpr std::uint64_t kMembers = 4;

    /// Next hops 1 to nextHops, as the function fills them, and FECs 1 to fecs, each of kMembers
    /// next hops of its own.
    PublishedExport(std::uint64_t nextHops, FillNextHop fill, std::uint64_t fecs = 0);
    /// A next-hop mapper that has everything still to do.
    Vel::Ref<NexthopMapperSm> mapper(Vel::Ref<OcApi::NextHopContainer> to,
                                     Vel::Ref<const Vxlan::VtiStatusDir> vtis = nullptr);

    ThreadTimeClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    /// The producer's side of the store.
    Store::Writer& writer() { return *writer_; }
    Vel::Ref<Mesa::EntityManager> tables;
    Vel::Ref<Stash::MountGroup> mountGroup;
    Vel::Ref<FlattenFecSet> set;
    Vel::Ref<AnchorValidatorContext> context;

private:
    void publishNextHops(std::uint64_t count, FillNextHop fill);
    void publishFecs(std::uint64_t count);

    TestSupport::TempDir directory_;
    Store::Options options_;
    std::unique_ptr<Store::Writer> writer_;
    std::unique_ptr<Stash::ContentPublisher> contents_;
    Vel::Ref<Store::Reader> reader_;
};

/// Without encapsulation: interface, address and MAC made of the id.
void fillPlain(std::uint64_t id, Stash::FlattenFecNextHop& to);

}  // namespace Pel::Oc
