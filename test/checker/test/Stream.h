#pragma once

#include <proto/gnmi.pb.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "test/checker/Replay.h"

namespace Checker {

/// A recording in memory, for tests that change it.
struct Stream {
    struct Message {
        std::int64_t received = 0;
        gnmi::SubscribeResponse response;
    };
    std::vector<Message> messages;
    StreamEnd end;

    static Stream load(const std::filesystem::path& recording);
    void save(const std::filesystem::path& recording) const;
    std::vector<Finding> check(const ReplayOptions& options = {}) const;
    /// Also against what another stream led to.
    std::vector<Finding> check(const ReplayOptions& options, const Stream& truth) const;
};

/// Each rule that was found broken once, in order of appearance, as one text; empty when clean.
std::string rulesOf(const std::vector<Finding>& findings);

}  // namespace Checker
