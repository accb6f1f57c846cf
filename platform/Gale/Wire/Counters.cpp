#include "platform/Gale/Wire/Counters.h"

namespace Gale::Wire {
namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Count::Last_)> kNames{
    "callsStarted",      "callsFinished",    "callsCancelled", "callsRefused",    "callsExpired",
    "callsStalled",      "messagesReceived", "bytesReceived",  "bytesSent",       "writes",
    "framesReceived",    "dataFramesSent",   "resetsReceived", "resetsSent",      "pingsReceived",
    "pingStrikes",       "settingsReceived", "emptyData",      "headerOverflows", "missingTe",
    "keepaliveTimeouts", "handlerFailures",  "guardTrips",
};
static_assert(!kNames.back().empty());

}  // namespace

std::string_view name(Count count) {
    return kNames[static_cast<std::size_t>(count)];
}

Counters& Counters::operator+=(const Counters& other) {
    for (std::size_t i = 0; i < values_.size(); ++i) { values_[i] += other.values_[i]; }
    return *this;
}

}  // namespace Gale::Wire
