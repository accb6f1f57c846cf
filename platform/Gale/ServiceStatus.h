#pragma once

#include "platform/Gale/Journal.h"
#include "platform/Gale/Provider.h"
#include "platform/Gale/Subscribers.h"
#include "platform/Gale/Waiting.h"
#include "platform/Gale/Wire/Server.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Gale {

/// One list of a view.
struct KindStatus {
    std::string path;  ///< as in EntryKind
    std::size_t shown = 0;
};

/// One view, as the scheduler's thread knows it.
struct ViewStatus {
    std::string origin;
    std::string demand;  ///< LazyFill::text(); empty: the view is not made on demand
    std::vector<KindStatus> kinds;
    ProviderStatistics provider;      ///< all 0 while there is none
    JournalStatistics journal;        ///< what subscribers have still to take, among others
    std::vector<Waiting::Held> held;  ///< the first few of those that wait
};

/// What the I/O thread knows.
struct StreamsStatus {
    Wire::ServerStatus wire;
    std::vector<SubscriberStatus> subscribers;
    CallFailures refused;
    CallFailures terminated;
};

/// The streaming server at a moment.
struct ServiceStatus {
    bool running = false;
    std::string error;  ///< why it is not running
    std::string address;
    std::uint16_t port = 0;
    std::vector<ViewStatus> views;
    /// Nothing while it is not running, or when the I/O thread did not answer within kPatience.
    std::optional<StreamsStatus> streams;

    static constexpr Kiln::Duration kPatience = std::chrono::seconds{1};
    static constexpr std::size_t kHeld = 5;  ///< ViewStatus::held at most
};

using StatusAnswer = std::function<void(const ServiceStatus&)>;

}  // namespace Gale
