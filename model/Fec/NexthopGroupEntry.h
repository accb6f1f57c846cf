#pragma once

#include <compare>
#include <cstdint>
#include <utility>

#include "model/Net/Id.h"
#include "platform/Vel/Fields.h"

namespace Pel {

/// Identity of a next-hop group; 0 is none.
using NexthopGroupId = Nexo::Id<struct NexthopGroupIdTag>;
/// Position of an entry in its group; counts from 0.
using NexthopGroupEntryIndex = Nexo::Id<struct NexthopGroupEntryIndexTag, std::uint32_t>;

/// Names one entry of one group, to find its counter.
struct NexthopGroupEntryCounterKey {
    NexthopGroupId nhgId;
    NexthopGroupEntryIndex entryId;

    static constexpr auto fields() {
        return Vel::fields(Vel::field("nhgId", &NexthopGroupEntryCounterKey::nhgId),
                           Vel::field("entryId", &NexthopGroupEntryCounterKey::entryId));
    }
    friend auto operator<=>(const NexthopGroupEntryCounterKey&,
                            const NexthopGroupEntryCounterKey&) = default;
    template <class H>
    friend H AbslHashValue(H h, const NexthopGroupEntryCounterKey& k) {
        return H::combine(std::move(h), k.nhgId, k.entryId);
    }
};

}  // namespace Pel

template <>
struct Store::KeyCodec<Pel::NexthopGroupEntryCounterKey> {
    static std::string encode(const Pel::NexthopGroupEntryCounterKey& key) {
        std::string bytes;
        appendBigEndian(bytes, key.nhgId.value());
        appendBigEndian(bytes, key.entryId.value());
        return bytes;
    }
    static std::optional<Pel::NexthopGroupEntryCounterKey> decode(std::string_view bytes) {
        const auto group = takeBigEndian(bytes);
        const auto entry = takeBigEndian(bytes);
        if (!group || !entry || !bytes.empty() || *entry > UINT32_MAX) { return std::nullopt; }
        return Pel::NexthopGroupEntryCounterKey{
            Pel::NexthopGroupId{*group},
            Pel::NexthopGroupEntryIndex{static_cast<std::uint32_t>(*entry)}};
    }
};
