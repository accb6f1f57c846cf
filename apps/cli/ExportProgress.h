#pragma once

#include <absl/container/flat_hash_set.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>

#include "apps/cli/GnmiStream.h"

namespace gnmi {
class Notification;
}

namespace Pel::Cli {

/// Counts what a client of the stream has been shown, on a thread of its own.
class ExportProgress {
public:
    struct Counts {
        std::size_t interfaces = 0;  ///< that next hops name
        std::size_t nextHops = 0;
        std::size_t groups = 0;
        std::size_t ipv4 = 0;
        std::size_t ipv6 = 0;
        bool synced = false;           ///< the initial set is over
        bool ipv4StateSynced = false;  ///< of the default instance
        bool ipv6StateSynced = false;
        std::chrono::steady_clock::time_point lastChange;  ///< an entry came or went
        bool ended = false;                                ///< the stream is over; `error` says why
        std::string error;
    };

    explicit ExportProgress(const std::string& server);
    ExportProgress(const ExportProgress&) = delete;
    ExportProgress& operator=(const ExportProgress&) = delete;
    ~ExportProgress();

    Counts counts() const;

private:
    void take(const gnmi::Notification& notification);
    void takeLeaf(std::string_view path, std::string_view value);
    void entryIs(std::string_view path, bool present);
    /// The keys of the list that the path names an entry of, or null.
    absl::flat_hash_set<std::uint64_t>* listOf(std::string_view path);

    GnmiStream stream_;
    mutable std::mutex mutex_;
    Counts counts_;
    // Hashes of entry paths: a million of them must not cost a million strings.
    absl::flat_hash_set<std::uint64_t> nextHops_;
    absl::flat_hash_set<std::uint64_t> groups_;
    absl::flat_hash_set<std::uint64_t> ipv4_;
    absl::flat_hash_set<std::uint64_t> ipv6_;
    std::unordered_set<std::string> interfaces_;
    std::thread thread_;  // last: uses all of the above
};

}  // namespace Pel::Cli
