#pragma once

namespace Pel::Cli {

/// How `pel` ends; docs and scripts rely on the numbers.
enum ExitCode : int {
    kDone = 0,
    kFailed = 1,    ///< tried, and it went wrong; standard error says what
    kUsage = 2,     ///< the command line makes no sense
    kNobody = 3,    ///< no agent (no gNMI server) is there
    kNoAnswer = 4,  ///< it is there and does not answer in time
};

}  // namespace Pel::Cli
