#include "PelOpenConfig/PelOcFecExportData.h"

#include <utility>

#include "platform/Vel/Errors.h"

namespace Pel::Oc {
namespace {

Stash::OcNextHopIndex takeKey(CharRange& from) {
    try {
        return Stash::OcNextHopIndex{from};
    } catch (const Vel::RangeError& error) {
        throw Vel::DeserialisationError{std::string{"attribute \"key\": "} + error.what()};
    }
}

}  // namespace

NhCounters::NhCounters(CharRange& from) {
    from.needPre("Pel::Oc::NhCounters{key: ");
    key = takeKey(from);
    try {
        from.needPre(", packetsForwarded: ");
        packetsForwarded = from.needNumber();
        from.needPre(", octetsForwarded: ");
        octetsForwarded = from.needNumber();
    } catch (const Vel::RangeError& error) { throw Vel::DeserialisationError{error.what()}; }
    from.needPre("}");
}

std::string NhCounters::stringValue() const {
    return "Pel::Oc::NhCounters{key: " + key.stringValue() +
           ", packetsForwarded: " + std::to_string(packetsForwarded) +
           ", octetsForwarded: " + std::to_string(octetsForwarded) + "}";
}

NhCounters strepToValue(std::string_view text) {
    CharRange range{text};
    NhCounters value{range};
    range.needEnd();
    return value;
}

void PelOcFecExportData::nhCountersUpdateIs(const NhCounters& value) {
    if (NhCounters::isEq(nhCountersUpdate_, value)) { return; }
    passTheNhCountersUpdate(value);
}

void PelOcFecExportData::passTheNhCountersUpdate(const NhCounters& value) {
    const NhCounters previous = std::exchange(nhCountersUpdate_, value);
    changed_.publish(previous);
}

}  // namespace Pel::Oc
