#include "apps/tree/CommandTree.h"

#include <CLI/CLI.hpp>

#include <string_view>

namespace Pel::CommandTree {
namespace {

std::vector<std::string> split(std::string_view text, char at) {
    std::vector<std::string> parts;
    while (true) {
        const std::size_t end = text.find(at);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) { return parts; }
        text.remove_prefix(end + 1);
    }
}

/// The parser tells types as "INT:INT in [1 - 9]" or "TEXT:{true,false}".
void typeIs(const std::string& told, Option& option) {
    const std::size_t colon = told.find(':');
    option.type = told.substr(0, colon);
    if (colon == std::string::npos) { return; }
    const std::string rule = told.substr(colon + 1);
    if (rule.starts_with('{') && rule.ends_with('}')) {
        option.choices = split(std::string_view{rule}.substr(1, rule.size() - 2), ',');
        return;
    }
    const std::size_t open = rule.find('[');
    const std::size_t dash = rule.find(" - ");
    if (open == std::string::npos || dash == std::string::npos || !rule.ends_with(']')) { return; }
    option.bounds = rule.substr(open + 1, dash - open - 1) + " to " +
                    rule.substr(dash + 3, rule.size() - dash - 4);
}

Option optionOf(const CLI::Option& from) {
    Option option;
    const bool positional = from.get_positional();
    const std::string names = positional ? from.get_name(true) : from.get_name(false, true);
    for (std::string name : split(names, ',')) {
        const std::size_t brace = name.find('{');  // "--rates{5}"
        if (brace != std::string::npos) {
            option.whenBare = name.substr(brace + 1, name.size() - brace - 2);
            name.resize(brace);
        }
        option.names.push_back(name);
    }
    option.takesValue = from.get_items_expected_max() != 0;
    if (option.takesValue) { typeIs(from.get_type_name(), option); }
    option.byDefault = from.get_default_str();
    option.description = from.get_description();
    option.required = from.get_required();
    option.repeats = from.get_expected_max() == CLI::detail::expected_max_vector_size;
    return option;
}

}  // namespace

Command of(const CLI::App& app) {
    Command command;
    command.name = app.get_name();
    command.description = app.get_description();
    for (const CLI::Option* const option : app.get_options({})) {
        if (option->get_group().empty()) { continue; }
        auto& list = option->get_positional() ? command.positionals : command.options;
        list.push_back(optionOf(*option));
    }
    for (const CLI::App* const below : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (!below->get_group().empty()) { command.subcommands.push_back(of(*below)); }
    }
    return command;
}

}  // namespace Pel::CommandTree
