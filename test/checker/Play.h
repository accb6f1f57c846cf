#pragma once

#include <filesystem>
#include <string>

#include "test/checker/LagHistogram.h"
#include "test/checker/Recording.h"
#include "test/checker/Replay.h"

namespace Checker {

/// A recording played from its beginning to its end.
struct Played {
    LagHistogram lag;  ///< received - stamp, of notifications after the sync
    StreamEnd end;
};

/// Empty, or why the recording cannot be used.
std::string play(const std::filesystem::path& recording, Replay& replay, Played& played);

}  // namespace Checker
