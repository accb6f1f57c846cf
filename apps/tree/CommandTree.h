#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What a program's command line takes, as it was declared to the parser: what completion and manual
/// pages are made from, so that they say no more and no less.
namespace Pel::CommandTree {

struct Option {
    std::vector<std::string> names;  ///< "-h", "--help"; of a positional its name alone
    bool takesValue = false;         ///< in a word of its own
    std::string whenBare;            ///< a flag that may have a value ("--rates=5"): it without one
    std::string type;                ///< "TEXT", "INT", ...; "FILE" and "DIR" complete as such
    std::string bounds;              ///< "1 to 9"; empty: none
    std::vector<std::string> choices;
    std::string byDefault;  ///< empty: none is told
    std::string description;
    bool required = false;
    bool repeats = false;
};

struct Command {
    std::string name;
    std::string description;
    std::vector<Option> options;
    std::vector<Option> positionals;
    std::vector<Command> subcommands;
};

/// All but what is hidden (in no group).
Command of(const CLI::App& app);

}  // namespace Pel::CommandTree
