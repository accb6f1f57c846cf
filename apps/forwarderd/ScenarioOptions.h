#pragma once

#include <memory>
#include <string>

#include "forwarder/Scenario/ChangeSource.h"

namespace Pel::Forwarder {

/// What `--source scenario` plays: a file or what is generated, one of them.
struct ScenarioOptions {
    std::string file;
    std::string generate;

    /// Null, and why, line by line, when there is neither, both, or something is wrong with it.
    std::unique_ptr<ChangeSource> source(std::string& error) const;
};

}  // namespace Pel::Forwarder
