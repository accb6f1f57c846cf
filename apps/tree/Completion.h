#pragma once

#include <string>

#include "apps/tree/CommandTree.h"

namespace Pel::CommandTree {

/// A bash script that completes the command line of this program: subcommands, options, their
/// choices, files and directories.
std::string bashCompletion(const Command& program);

}  // namespace Pel::CommandTree
