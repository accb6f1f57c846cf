#include "apps/tree/ManualPage.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <CLI/CLI.hpp>

#include <cctype>

namespace Pel::CommandTree {
namespace {

std::string upper(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return result;
}

/// What stands for the value: its choices, or what kind it is.
std::string valueWord(const Option& option) {
    if (!option.choices.empty()) { return fmt::format("{}", fmt::join(option.choices, "|")); }
    return option.type == "INT" || option.type == "UINT" ? "N" : option.type;
}

std::string positionalWord(const Option& option) {
    const std::string word = upper(option.names.front()) + (option.repeats ? "..." : "");
    return option.required ? word : "[" + word + "]";
}

/// "The port. 1 to 9. Default: 5."
std::string told(const Option& option) {
    std::string text = option.description;
    const auto sentence = [&text](const std::string& more) {
        if (!text.ends_with('.')) { text += '.'; }
        text += " " + more + ".";
    };
    if (!option.bounds.empty()) { sentence(option.bounds); }
    if (!option.whenBare.empty()) { sentence("Without a value: " + option.whenBare); }
    if (!option.byDefault.empty()) { sentence("Default: " + option.byDefault); }
    if (!text.ends_with('.')) { text += '.'; }
    return text;
}

void appendItem(const std::string& head, const std::string& text, std::string& page) {
    page += ".TP\n" + head + "\n" + roff(text) + "\n";
}

void appendOptions(const Command& command, std::string& page) {
    for (const Option& positional : command.positionals) {
        std::string head = "\\fI" + roff(upper(positional.names.front())) + "\\fR";
        if (!positional.choices.empty()) { head += " (" + roff(valueWord(positional)) + ")"; }
        appendItem(head, told(positional), page);
    }
    for (const Option& option : command.options) {
        std::string head = "\\fB" + roff(fmt::format("{}", fmt::join(option.names, ", "))) + "\\fR";
        if (option.takesValue) { head += " \\fI" + roff(valueWord(option)) + "\\fR"; }
        if (!option.whenBare.empty()) { head += "[=\\fIN\\fR]"; }
        appendItem(head, told(option), page);
    }
}

void appendCommand(const Command& command, const std::string& path, std::string& page) {
    const std::string name = path + " " + command.name;
    if (command.subcommands.empty() || !command.positionals.empty()) {
        std::string words = name;
        for (const Option& positional : command.positionals) {
            words += " " + positionalWord(positional);
        }
        page += ".SS \"" + roff(words) + "\"\n" + roff(command.description) + ".\n";
        appendOptions(command, page);
    }
    for (const Command& sub : command.subcommands) { appendCommand(sub, name, page); }
}

}  // namespace

std::string roff(const std::string& text) {
    std::string result = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (const char c : text) {
        switch (c) {
            case '\\':
                result += "\\e";
                break;
            case '-':
                result += "\\-";
                break;
            case '"':
                result += "\\(dq";
                break;
            case '\'':
                result += "\\(aq";
                break;
            case '^':
                result += "\\(ha";
                break;
            case '~':
                result += "\\(ti";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string manualSection(const Command& program) {
    std::string page = ".SH OPTIONS\n";
    appendOptions(program, page);
    if (program.subcommands.empty()) { return page; }
    page += ".SH COMMANDS\n";
    for (const Command& sub : program.subcommands) { appendCommand(sub, program.name, page); }
    return page;
}

void addManualOption(CLI::App& app) {
    app.add_flag_callback("--manual-section",
                          [&app] {
                              fmt::print("{}", manualSection(of(app)));
                              throw CLI::Success{};
                          })
        ->group("");
}

}  // namespace Pel::CommandTree
