#pragma once

#include <string>

#include "apps/tree/CommandTree.h"

namespace CLI {
class App;
}

namespace Pel::CommandTree {

/// Text as troff takes it: nothing in it is a request or an escape.
std::string roff(const std::string& text);

/// The part of a manual page that tells the program's options and, one after the other, its
/// subcommands with theirs.
std::string manualSection(const Command& program);

/// Has the program print that part and end, with an option that help does not show: the build asks
/// for it and puts it between what is written by hand (docs/man).
void addManualOption(CLI::App& app);

}  // namespace Pel::CommandTree
