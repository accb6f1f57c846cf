#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gnmi {
class Notification;
class Path;
class Update;
}  // namespace gnmi

namespace Pel::Cli {

/// The counters of a stream and how fast they grow. Time is what the notifications' stamps say, so a
/// message that is late on its way is no higher rate.
/// A counter is an unsigned leaf below a node "counters" (or "...Counters") that is no list key.
class RateMeter {
public:
    struct Row {
        std::string path;
        std::uint64_t value = 0;
        /// Change in a second, from the last sample that was reported to this one. Nullopt without
        /// an earlier sample, or when none is earlier by its stamp.
        std::optional<double> perSecond;
        /// Fell, or its stamp did, since the last report: counted from there again.
        bool restarted = false;
    };
    struct Report {
        std::vector<Row> rows;  ///< counters with a sample since the last report, by path
        std::uint64_t updates = 0;
        std::uint64_t deletes = 0;
        std::uint64_t messages = 0;
    };

    void take(const gnmi::Notification& notification);
    /// What came since the last report.
    Report report();

private:
    struct Sample {
        std::uint64_t value = 0;
        std::int64_t nanoseconds = 0;
    };
    struct Counter {
        Sample last;
        Sample base;  ///< where the rate is measured from
        bool sampled = false;
        bool restarted = false;
        bool renewed = false;  ///< since the last atomic notification above it
    };
    using Counters = std::map<std::string, Counter, std::less<>>;

    void takeSample(const std::string& path, Sample sample);
    /// Calls for each counter at or below the path; erases those for which it answers true.
    void eraseBelow(std::string_view path, const std::function<bool(Counter&)>& erase);
    static Row row(const std::string& path, Counter& counter);

    Counters counters_;
    Report now_;  // no rows yet
};

}  // namespace Pel::Cli
