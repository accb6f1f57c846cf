#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/Aft/NextHopInGroupContainer.h"
#include "model/Aft/NextHopIndex.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

/// One AFT next-hop group.
struct NextHopGroup {
    static constexpr std::uint8_t kUnset = 0xFF;

    NextHopGroupId id;
    std::optional<std::uint64_t> programmedId;
    std::optional<std::string> name;
    std::uint8_t groupAttribute = kUnset;
    std::uint8_t secondFlag = kUnset;  ///< 0x01 set
    NextHopInGroupContainer nextHops;

    static constexpr auto fields() {
        return Vel::fields(Vel::field("id", &NextHopGroup::id),
                           Vel::field("programmedId", &NextHopGroup::programmedId),
                           Vel::field("name", &NextHopGroup::name),
                           Vel::field("groupAttribute", &NextHopGroup::groupAttribute),
                           Vel::field("secondFlag", &NextHopGroup::secondFlag),
                           Vel::field("nextHops", &NextHopGroup::nextHops));
    }
    friend bool operator==(const NextHopGroup& a, const NextHopGroup& b) { return Vel::isEq(a, b); }
};

}  // namespace Pel::OcApi
