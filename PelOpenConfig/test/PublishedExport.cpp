#include "PelOpenConfig/test/PublishedExport.h"

#include <time.h>

#include <array>
#include <chrono>
#include <string>
#include <utility>

#include "model/Fec/FlattenFec.h"
#include "model/Registration.h"

namespace Pel::Oc {
namespace {

/// A record and what the change log says of it: far below what a transaction may hold.
constexpr std::uint64_t kAtOnce = 128;

}  // namespace

Kiln::TimePoint ThreadTimeClock::now() const {
    timespec worked{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &worked);
    return Kiln::TimePoint{std::chrono::seconds{worked.tv_sec} +
                           std::chrono::nanoseconds{worked.tv_nsec}};
}

PublishedExport::PublishedExport(std::uint64_t nextHops, FillNextHop fill, std::uint64_t fecs) {
    registerModelTypes();
    options_.directory = directory_.path() / "store";
    options_.mapBytes = std::size_t{2} << 30;
    std::string error;
    writer_ = std::make_unique<Store::Writer>(
        Store::Environment::open(options_, Store::Access::write, error));
    contents_ = std::make_unique<Stash::ContentPublisher>(*writer_);
    publishNextHops(nextHops, fill);
    publishFecs(fecs);

    reader_ = Vel::make<Store::Reader>(scheduler, options_);
    tables = Vel::make<Mesa::EntityManager>(reader_);
    mountGroup = Vel::make<Stash::MountGroup>(tables, Vel::make<Stash::Manager>(reader_), "stash");
    mountGroup->mount(FlattenFecSet::kPath,
                      FlattenFecSet::kType,
                      {Mesa::TableKind::stashSet, {"fec", "nextHop"}});
    mountGroup->close();
    set = tables->entity<FlattenFecSet>(FlattenFecSet::kPath);
    scheduler->runUntilIdle();
    context = anchorValidatorContextFactory(set);
}

void PublishedExport::publishNextHops(std::uint64_t count, FillNextHop fill) {
    Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> publisher{
        *writer_, *contents_, "hardware/pel/ocAft/nextHop", FlattenFecSet::kNextHopType};
    for (std::uint64_t id = 1; id <= count; ++id) {
        Stash::FlattenFecNextHop nextHop;
        fill(id, nextHop);
        const Stash::OcNextHopIndex index{id};
        publisher.set(index,
                      {index, NexthopGroupId{id}, NexthopGroupEntryIndex{0}, {}},
                      Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
        if (id % kAtOnce == 0) { (void)writer_->commit(); }
    }
    (void)writer_->commit();
}

void PublishedExport::publishFecs(std::uint64_t count) {
    Stash::CollectionPublisher<FecId, FlattenFecEntry> publisher{
        *writer_, *contents_, "hardware/pel/ocAft/fec", FlattenFecSet::kFecType};
    for (std::uint64_t id = 1; id <= count; ++id) {
        Stash::FlattenFec fec;
        for (std::uint64_t member = 1; member <= kMembers; ++member) {
            fec.nextHopIs({Stash::OcNextHopIndex{(id - 1) * kMembers + member}, 1});
        }
        FlattenFecEntry entry;
        entry.topFec = true;
        entry.programmedId = id;
        publisher.set(FecId{id}, entry, Stash::RecordCodec<Stash::FlattenFec>::encode(fec));
        if (id % kAtOnce == 0) { (void)writer_->commit(); }
    }
    (void)writer_->commit();
}

Vel::Ref<NexthopMapperSm> PublishedExport::mapper(Vel::Ref<OcApi::NextHopContainer> to,
                                                  Vel::Ref<const Vxlan::VtiStatusDir> vtis) {
    return NexthopMapperSmIs(scheduler,
                             mountGroup,
                             set,
                             Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus"),
                             std::move(to),
                             Vel::make<FecReadyTrackingState>(),
                             Vel::make<OcApi::NextHopCountersContainer>("nextHopCounters"),
                             Vel::make<PelOcFecExportData>(),
                             context,
                             Vel::make<PelOcNextHopCountersMap>(),
                             nullptr,
                             std::move(vtis),
                             nullptr);
}

void fillPlain(std::uint64_t id, Stash::FlattenFecNextHop& to) {
    to.interface = Nexo::IntfId{"eth" + std::to_string(id % 64)};
    const std::array<std::uint8_t, 4> address{10,
                                              static_cast<std::uint8_t>(id >> 16U),
                                              static_cast<std::uint8_t>(id >> 8U),
                                              static_cast<std::uint8_t>(id)};
    to.address = Nexo::IpGenAddr{address};
    to.mac = Nexo::EthAddr{{0, 1, 2, 3, 4, static_cast<std::uint8_t>(id)}};
}

}  // namespace Pel::Oc
