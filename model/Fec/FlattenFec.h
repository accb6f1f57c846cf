#pragma once

#include <absl/container/inlined_vector.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "model/Fec/OcNextHopIndex.h"
#include "platform/Stash/Manager.h"
#include "platform/Vel/Fields.h"
#include "platform/Vel/Ref.h"

namespace Pel::Stash {

/// A next hop of a FEC with its share of the traffic.
struct FlattenFecMember {
    OcNextHopIndex index;
    std::uint32_t weight = 1;

    static constexpr auto fields() {
        return Vel::fields(Vel::field("index", &FlattenFecMember::index),
                           Vel::field("weight", &FlattenFecMember::weight));
    }
    friend bool operator==(const FlattenFecMember&, const FlattenFecMember&) = default;
};

/// A FEC as the stash holds it: its next hops, already flattened through any recursion.
class FlattenFec final : public Vel::RefCounted {
public:
    std::uint32_t nextHops() const { return static_cast<std::uint32_t>(members_.size()); }
    /// `i` is below nextHops().
    const FlattenFecMember& nextHop(std::uint32_t i) const { return members_[i]; }
    /// May be empty.
    const std::string& nexthopGroupName() const { return name_; }
    /// Accompanies the name.
    std::uint8_t groupAttribute() const { return groupAttribute_; }

    /// Adds a next hop after the others.
    void nextHopIs(const FlattenFecMember& member) { members_.push_back(member); }
    void nexthopGroupNameIs(std::string name, std::uint8_t attribute) {
        name_ = std::move(name);
        groupAttribute_ = attribute;
    }

    static constexpr auto fields() {
        return Vel::fields(Vel::field("nextHops", &FlattenFec::members_),
                           Vel::field("nexthopGroupName", &FlattenFec::name_),
                           Vel::field("groupAttribute", &FlattenFec::groupAttribute_));
    }

private:
    absl::InlinedVector<FlattenFecMember, 4> members_;
    std::string name_;
    std::uint8_t groupAttribute_ = 0;
};

template <>
struct RecordCodec<FlattenFec> {
    static Vel::Ref<const FlattenFec> decode(std::string_view bytes);
    static std::string encode(const FlattenFec& record);
};

}  // namespace Pel::Stash
