#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "model/Counters/CounterTable.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecEntry.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenNextHopEntry.h"
#include "model/Readiness/ReadyRecord.h"
#include "model/Registration.h"
#include "model/Route/RouteStatus.h"
#include "model/Tolo/Config.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vrf/VrfIdMap.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "platform/Hubdb/Mirror.h"
#include "platform/Hubdb/RecordFrame.h"
#include "platform/Stash/ContentLayout.h"
#include "platform/Stash/Manager.h"
#include "platform/Store/KeyCodec.h"
#include "platform/Vel/Assert.h"
#include "platform/Vel/Fields.h"

// Whatever stands in the store as one of the agent's inputs is a record or is refused, and a record
// that was read is one that could have been written: it comes back as it is.

namespace {

/// A row of a table or an entry of a stash collection.
template <class Record>
void readRow(std::string_view bytes) {
    using Codec = Mesa::RecordCodec<Record>;
    const auto record = Codec::decode(bytes);
    if (!record) { return; }
    const auto again = Codec::decode(Codec::encode(*record));
    VEL_ASSERT(again && Vel::isEq(*again, *record));
    VEL_ASSERT(Vel::toString(*again) == Vel::toString(*record));
}

/// A deduplicated content, inside its frame.
template <class Record>
void readContent(std::string_view bytes) {
    using Codec = Pel::Stash::RecordCodec<Record>;
    const auto record = Codec::decode(bytes);
    if (!record) { return; }
    const auto again = Codec::decode(Codec::encode(*record));
    VEL_ASSERT(again && Vel::isEq(*again, *record));
    VEL_ASSERT(Vel::toString(*again) == Vel::toString(*record));
}

void readFrame(std::string_view bytes) {
    const auto frame = Pel::Stash::ContentFrame::decode(bytes);
    if (!frame) { return; }
    VEL_ASSERT(frame->encode() == bytes);
    readContent<Pel::Stash::FlattenFecNextHop>(frame->content);
    readContent<Pel::Stash::FlattenFec>(frame->content);
}

/// A record of the state database, of the type that it says.
void readEntity(std::string_view bytes) {
    const auto frame = Hubdb::RecordFrame::decode(bytes);
    if (!frame) { return; }
    const auto entity = Hubdb::makeEntity(std::string{frame->type}, "fuzzed");
    if (!entity || !entity->recordIs(frame->record)) { return; }
    VEL_ASSERT(entity->recordIs(frame->record));
    entity->recordDel();
}

template <class Key>
void readKey(std::string_view bytes) {
    using Codec = Store::KeyCodec<Key>;
    const auto key = Codec::decode(bytes);
    if (!key) { return; }
    const auto again = Codec::decode(Codec::encode(*key));
    VEL_ASSERT(again && *again == *key);
}

void readKeys(std::string_view bytes) {
    readKey<Pel::FecId>(bytes);
    readKey<Pel::Stash::OcNextHopIndex>(bytes);
    readKey<Pel::NexthopGroupEntryCounterKey>(bytes);
    readKey<Vrf::VrfId>(bytes);
    readKey<FlexCounters::CounterIndex>(bytes);
    readKey<Nexo::IpPrefix>(bytes);
}

using Read = void (*)(std::string_view);
constexpr Read kReads[] = {
    readFrame,
    readContent<Pel::Stash::FlattenFecNextHop>,
    readContent<Pel::Stash::FlattenFec>,
    readRow<Pel::FlattenFecEntry>,
    readRow<Pel::FlattenNextHopEntry>,
    readRow<Routing::NexthopGroup::CounterKeyEntry>,
    readRow<Vrf::VrfIdMap::Entry>,
    readRow<Mesa::FibRoute>,
    readRow<Pel::ReadyRecord>,
    readRow<Tolo::ConfigRecord>,
    readEntity,
    readKeys,
    readRow<FlexCounters::MesaFlexCounter>,
};

}  // namespace

/// The first byte says what the others are read as.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool registered = (Pel::registerModelTypes(), true);
    if (!registered || size == 0) { return 0; }
    // At an address of its own: reading beyond the end shows.
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    kReads[data[0] % std::size(kReads)](bytes);
    return 0;
}
