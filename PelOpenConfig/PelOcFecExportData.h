#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "model/Fec/CharRange.h"
#include "model/Fec/OcNextHopIndex.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Fields.h"

namespace Pel::Oc {

/// Counters of one next hop.
struct NhCounters {
    Stash::OcNextHopIndex key;
    std::uint64_t packetsForwarded = 0;
    std::uint64_t octetsForwarded = 0;

    NhCounters() = default;
    NhCounters(Stash::OcNextHopIndex nextHop, std::uint64_t packets, std::uint64_t octets)
        : key{nextHop}, packetsForwarded{packets}, octetsForwarded{octets} {}
    /// Takes the string form off the range. Raises a Vel::DeserialisationError for what is not one;
    /// one of a key out of range names the attribute "key".
    explicit NhCounters(CharRange& from);

    /// In the order of comparison.
    static constexpr auto fields() {
        return Vel::fields(Vel::field("packetsForwarded", &NhCounters::packetsForwarded),
                           Vel::field("octetsForwarded", &NhCounters::octetsForwarded),
                           Vel::field("key", &NhCounters::key));
    }

    /// Differs from the default: any of the three is not zero.
    bool isSet() const { return !isEq(*this, NhCounters{}); }
    /// Packets, octets, then the key: all must match.
    static bool isEq(const NhCounters& a, const NhCounters& b) { return Vel::isEq(a, b); }
    friend bool operator==(const NhCounters& a, const NhCounters& b) { return isEq(a, b); }
    /// "Pel::Oc::NhCounters{key: 7, packetsForwarded: 1, octetsForwarded: 64}".
    std::string stringValue() const;
};

/// The value of a whole string form; raises a Vel::DeserialisationError when anything is left.
NhCounters strepToValue(std::string_view text);

/// The channel over which the counters mapper hands each computed value to the next-hop mapper.
/// Readers copy the value inside the publication: the next one replaces it.
class PelOcFecExportData final : public Vel::Entity {
public:
    PelOcFecExportData() : Vel::Entity{"pelOcFecExportData"} {}

    const NhCounters& nhCountersUpdate() const { return nhCountersUpdate_; }
    /// As a state: an equal value changes and publishes nothing.
    void nhCountersUpdateIs(const NhCounters& value);
    /// As an event: published in all cases. A counter that reads the same twice in a row must still
    /// reach the reader, so the two setters stay apart.
    void passTheNhCountersUpdate(const NhCounters& value);
    /// Published with the previous value.
    Vel::Publisher<const NhCounters&>& onNhCountersUpdate() const { return changed_; }

private:
    NhCounters nhCountersUpdate_;
    mutable Vel::Publisher<const NhCounters&> changed_;
};

}  // namespace Pel::Oc
