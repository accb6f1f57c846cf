#pragma once

#include <absl/container/flat_hash_map.h>

#include <cstdint>
#include <string_view>

#include "test/checker/LagHistogram.h"

namespace Soak {

/// What a client holds, as one number: reads a stream's messages as cheaply as can be, and knows of each entry a hash of
/// its content. Two clients with equal digests hold the same state, whatever ways their streams took.
class StreamDigest {
public:
    /// @param received wall clock, in ns
    void take(std::string_view message, std::int64_t received);
    /// Whether lag is noted; of messages after the sync only.
    void measuringIs(bool measuring) { measuring_ = measuring; }

    bool synced() const { return synced_; }
    std::uint64_t messages() const { return messages_; }
    std::size_t entries() const { return contents_.size(); }
    std::uint64_t digest() const { return digest_; }
    const Checker::LagHistogram& lag() const { return lag_; }

private:
    void notification(std::string_view bytes, std::int64_t received);
    void set(std::uint64_t key, std::uint64_t content);
    void erase(std::uint64_t key);

    absl::flat_hash_map<std::uint64_t, std::uint64_t> contents_;
    std::uint64_t digest_ = 0;
    std::uint64_t messages_ = 0;
    Checker::LagHistogram lag_;
    bool synced_ = false;
    bool measuring_ = false;
};

}  // namespace Soak
