#include "apps/tree/Completion.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Pel::CommandTree {
namespace {

/// What comes before and after the two tables. NAME stands for the program, ID for it as a part of
/// function names.
constexpr std::string_view kHead =
    R"(# Completion of NAME for bash, as NAME itself says. Renew it with each version, or best:
#   source <(NAME completion bash)
)";

// Walks the words up to the one that is being completed: bash takes "--root=/x" for three of them.
constexpr std::string_view kTail = R"(
_ID() {
    local current=${COMP_WORDS[COMP_CWORD]} command=NAME option= count=0 word i
    local subcommands= options= valued= values= files=
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        _ID_command "$command"
        if [[ $word == "=" ]]; then
            option=${option:-${COMP_WORDS[i - 1]}}
        elif [[ -n $option ]]; then
            option=
        elif [[ $word == -* ]]; then
            [[ " $valued " == *" $word "* ]] && option=$word
        elif [[ " $subcommands " == *" $word "* ]]; then
            command+=" $word"
            count=0
        else
            count=$((count + 1))
        fi
    done
    [[ $current == "=" ]] && option=${option:-${COMP_WORDS[COMP_CWORD - 1]}} current=
    _ID_command "$command"
    if [[ -z $option && $current == -* ]]; then
        values=$options
    else
        _ID_values "$command ${option:-$count}"
        [[ -z $option ]] && values+=" $subcommands"
    fi
    COMPREPLY=($(compgen -W "$values" -- "$current"))
    if [[ -n $files && ${#COMPREPLY[@]} -eq 0 ]]; then
        compopt -o filenames 2>/dev/null
        local IFS=$'\n'
        COMPREPLY=($(compgen $files -- "$current"))
    fi
}
complete -F _ID NAME
)";

std::string filledIn(std::string_view text, const std::string& name, const std::string& id) {
    std::string result{text};
    for (const auto& [mark, value] : {std::pair{"NAME", &name}, std::pair{"ID", &id}}) {
        for (std::size_t at = result.find(mark); at != std::string::npos;
             at = result.find(mark, at + value->size())) {
            result.replace(at, std::string_view{mark}.size(), *value);
        }
    }
    return result;
}

/// Of the options those that are asked for, each by all its names.
template <class Wanted>
std::string names(const std::vector<Option>& options, Wanted wanted) {
    std::vector<std::string> result;
    for (const Option& option : options) {
        if (wanted(option)) {
            result.insert(result.end(), option.names.begin(), option.names.end());
        }
    }
    return fmt::format("{}", fmt::join(result, " "));
}

/// What each command takes.
void appendCommands(const Command& command, const std::string& path, std::string& script) {
    std::vector<std::string> below;
    for (const Command& sub : command.subcommands) { below.push_back(sub.name); }
    script += fmt::format(
        "    \"{}\")\n        subcommands=\"{}\"\n        options=\"{}\"\n"
        "        valued=\"{}\" ;;\n",
        path,
        fmt::join(below, " "),
        names(command.options, [](const Option&) { return true; }),
        names(command.options, [](const Option& o) { return o.takesValue; }));
    for (const Command& sub : command.subcommands) {
        appendCommands(sub, path + " " + sub.name, script);
    }
}

void appendValue(const std::string& pattern, const Option& option, std::string& script) {
    if (!option.choices.empty()) {
        script +=
            fmt::format("    {}) values=\"{}\" ;;\n", pattern, fmt::join(option.choices, " "));
    } else if (option.type == "FILE" || option.type == "DIR") {
        script += fmt::format("    {}) files=-{} ;;\n", pattern, option.type == "DIR" ? 'd' : 'f');
    }
}

/// What may stand for each value: "pel config set --root", and positionals by number: "... 0".
void appendValues(const Command& command, const std::string& path, std::string& script) {
    for (const Option& option : command.options) {
        for (const std::string& name : option.names) {
            appendValue(fmt::format("\"{} {}\"", path, name), option, script);
        }
    }
    std::size_t number = 0;
    for (const Option& positional : command.positionals) {
        appendValue(
            fmt::format(
                "\"{} \"{}", path, positional.repeats ? "[0-9]*" : fmt::format("{}", number)),
            positional,
            script);
        ++number;
    }
    for (const Command& sub : command.subcommands) {
        appendValues(sub, path + " " + sub.name, script);
    }
}

}  // namespace

std::string bashCompletion(const Command& program) {
    std::string id = program.name;
    for (char& c : id) { c = c == '-' ? '_' : c; }
    std::string script = filledIn(kHead, program.name, id);
    script += filledIn("\n_ID_command() {\n    case $1 in\n", program.name, id);
    appendCommands(program, program.name, script);
    script += "    esac\n}\n";
    script += filledIn("\n_ID_values() {\n    values= files=\n    case $1 in\n", program.name, id);
    appendValues(program, program.name, script);
    script += "    esac\n}\n";
    return script + filledIn(kTail, program.name, id);
}

}  // namespace Pel::CommandTree
