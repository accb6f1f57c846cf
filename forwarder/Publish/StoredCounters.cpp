#include "forwarder/Publish/StoredCounters.h"

#include <string_view>
#include <utility>
#include <vector>

namespace Pel::Forwarder {

namespace {

using FlexCounters::CounterTable;
using FlexCounters::MesaFlexCounter;
using Codec = Store::KeyCodec<FlexCounters::CounterIndex>;

constexpr const char* kOffsetPath = "forwarder/counterOffset";
constexpr const char* kOffsetType = "Pel::Forwarder::CounterOffset";

Traffic decodeOffset(std::string_view bytes) {
    const auto packets = Store::takeBigEndian(bytes);
    const auto octets = Store::takeBigEndian(bytes);
    return packets && octets ? Traffic{*packets, *octets} : Traffic{};
}

/// The first number from `from` on that is of the part.
std::uint64_t firstOf(const StoredCounters::Walk& walk, std::uint64_t from) {
    const std::uint64_t block = from / StoredCounters::kBlock;
    const std::uint64_t ahead = (walk.part + walk.parts - block % walk.parts) % walk.parts;
    return ahead == 0 ? from : (block + ahead) * StoredCounters::kBlock;
}

}  // namespace

std::optional<FlexCounters::CounterIndex> tunnelCounter(FecId id) {
    if (fecKind(id) != FecKind::ipInIpTunnel) { return std::nullopt; }
    const auto tunnel = Tunnel::TunnelTable::TunnelId::ofIpInIp(fecNumber(id));
    if (tunnel.numberOfType() != fecNumber(id)) { return std::nullopt; }
    return FlexCounters::makeCounterIndex(tunnel);
}

StoredCounters::StoredCounters(Store::Writer& writer)
    : writer_{writer},
      table_{writer, CounterTable::kPath, CounterTable::kType},
      offsets_{writer.tableIs(kOffsetPath, kOffsetType, Store::TableKind::content)} {}

void StoredCounters::set(Index index, const CountedTraffic& counted) {
    MesaFlexCounter record;
    record.packets = counted.traffic.packets;
    record.octets = counted.traffic.octets;
    table_.set(index, record, true);
    const std::string key = Codec::encode(index);
    if (counted.offset == Traffic{}) { return writer_.erase(offsets_, key); }
    std::string offset;
    Store::appendBigEndian(offset, counted.offset.packets);
    Store::appendBigEndian(offset, counted.offset.octets);
    writer_.put(offsets_, key, offset);
}

void StoredCounters::erase(Index index) {
    table_.erase(index);
    writer_.erase(offsets_, Codec::encode(index));
}

std::optional<CountedTraffic> StoredCounters::find(Index index) {
    const std::string key = Codec::encode(index);
    const auto bytes = writer_.get(table_.table(), key);
    const auto record = bytes ? Mesa::RecordCodec<MesaFlexCounter>::decode(*bytes) : std::nullopt;
    if (!record) { return std::nullopt; }
    const auto offset = writer_.get(offsets_, key);
    return CountedTraffic{{record->packets, record->octets},
                          offset ? decodeOffset(*offset) : Traffic{}};
}

void StoredCounters::forEach(absl::FunctionRef<void(Index)> visit) {
    writer_.forEach(table_.table(), [&](std::string_view key, std::string_view) {
        if (const auto index = Codec::decode(key)) { visit(*index); }
        return true;
    });
}

bool StoredCounters::rewrite(Walk& walk, std::size_t limit) {
    std::vector<std::pair<std::string, std::string>> rows;
    bool ended = false;
    for (std::size_t lookUps = 0; !ended && lookUps < limit && rows.size() < limit; ++lookUps) {
        const std::uint64_t from = firstOf(walk, walk.next);
        ended = true;
        if (from < walk.next) { break; }  // the part has no larger numbers
        const auto visit = [&](std::string_view key, std::string_view value) {
            const auto index = Codec::decode(key);
            if (!index) { return true; }
            if (index->value() / kBlock % walk.parts != walk.part) {
                walk.next = index->value();
                ended = false;
                return false;
            }
            rows.emplace_back(key, value);
            walk.next = index->value() + 1;
            ended = rows.size() < limit || walk.next == 0;
            return rows.size() < limit;
        };
        writer_.forEach(table_.table(), visit, Codec::encode(Index{from}));
    }
    for (const auto& [key, value] : rows) { writer_.put(table_.table(), key, value, true); }
    return !ended;
}

}  // namespace Pel::Forwarder
