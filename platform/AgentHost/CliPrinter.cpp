#include "platform/AgentHost/CliPrinter.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/Vel/Assert.h"

namespace AgentHost {
namespace {

bool isControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool isPlain(char c) {
    return static_cast<unsigned char>(c) < 0x80 && !isControl(c) && c != '"' && c != '\\';
}

constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kPlain = "\x1b[0m";

void appendPrintable(std::string& to, std::string_view text) {
    for (const char c : text) {
        if (isControl(c)) {
            fmt::format_to(std::back_inserter(to), "\\x{:02x}", c);
        } else {
            to += c;
        }
    }
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    appendPrintable(result, text);
    return result;
}

CliPrinter::CliPrinter(OutputFormat format) : format_{format} {
    if (structured()) { buffer_ += '{'; }
}

void CliPrinter::openDict(std::string_view label, std::string_view key) {
    VEL_ASSERT(!key.empty());
    if (begin(label, key)) {
        if (structured()) {
            buffer_ += '{';
        } else {
            plain(key);
        }
    }
    open_.push_back(false);
    first_ = true;
}

void CliPrinter::openList(std::string_view label, std::string_view key) {
    VEL_ASSERT(!key.empty());
    if (begin(label, key) && structured()) { buffer_ += '['; }
    open_.push_back(true);
    first_ = true;
}

void CliPrinter::openItem() {
    VEL_ASSERT(!open_.empty() && open_.back());
    if (structured()) { buffer_ += first_ ? "{" : ",{"; }
    open_.push_back(false);
    first_ = true;
}

void CliPrinter::closeDict() {
    VEL_ASSERT(!open_.empty());
    const bool list = open_.back();
    open_.pop_back();
    first_ = false;
    if (structured()) { buffer_ += list ? ']' : '}'; }
}

void CliPrinter::number(std::string_view label, std::string_view key, std::uint64_t value) {
    if (begin(label, key)) { fmt::format_to(std::back_inserter(buffer_), "{}", value); }
}

void CliPrinter::boolean(std::string_view label, std::string_view key, bool value) {
    if (begin(label, key)) { buffer_ += value ? "true" : "false"; }
}

void CliPrinter::string(std::string_view label, std::string_view key, std::string_view value) {
    if (!begin(label, key)) { return; }
    structured() ? quoted(value) : plain(value);
}

void CliPrinter::bad(std::string_view label, std::string_view key, std::string_view value) {
    if (structured()) { return string(label, key, value); }
    beginText(label);
    if (colours_) { buffer_ += kRed; }
    plain(value);
    if (colours_) { buffer_ += kPlain; }
}

void CliPrinter::numbers(std::string_view label,
                         std::string_view key,
                         std::span<const std::uint32_t> values) {
    if (!begin(label, key)) { return; }
    if (!structured() && values.empty()) {
        buffer_ += "None";
        return;
    }
    const std::string_view between = structured() ? "," : " ";
    if (structured()) { buffer_ += '['; }
    fmt::format_to(
        std::back_inserter(buffer_), "{}", fmt::join(values.begin(), values.end(), between));
    if (structured()) { buffer_ += ']'; }
}

void CliPrinter::endLine() {
    if (structured()) { return; }
    buffer_ += '\n';
    lineBegins_ = true;
}

void CliPrinter::andMore(std::size_t all, std::size_t most) {
    if (all <= most) { return; }
    text(fmt::format("  and {} more", all - most));
    endLine();
}

void CliPrinter::cmdErr(std::string text) {
    errors_.push_back(std::move(text));
}

std::string CliPrinter::error() const {
    return fmt::format("{}", fmt::join(errors_, "\n"));
}

void CliPrinter::end() {
    while (!open_.empty()) { closeDict(); }
    if (!structured()) { return; }
    if (!errors_.empty()) {
        begin({}, "errors");
        buffer_ += '[';
        for (const std::string& text : errors_) {
            if (&text != &errors_.front()) { buffer_ += ','; }
            quoted(text);
        }
        buffer_ += ']';
    }
    buffer_ += "}\n";
}

std::string CliPrinter::takeOutput() {
    return std::exchange(buffer_, {});
}

bool CliPrinter::begin(std::string_view label, std::string_view key) {
    if (!structured()) {
        if (!label.empty()) { beginText(label); }
        return !label.empty();
    }
    if (key.empty()) { return false; }
    if (!first_) { buffer_ += ','; }
    first_ = false;
    quoted(key);
    buffer_ += ':';
    return true;
}

void CliPrinter::beginText(std::string_view label) {
    if (lineBegins_) { buffer_.append(indent_, '\t'); }
    lineBegins_ = false;
    buffer_ += label;
}

void CliPrinter::plain(std::string_view text) {
    appendPrintable(buffer_, text);
}

void CliPrinter::quoted(std::string_view text) {
    if (std::all_of(text.begin(), text.end(), isPlain)) {
        buffer_ += '"';
        buffer_ += text;
        buffer_ += '"';
        return;
    }
    buffer_ += nlohmann::json(std::string{text})
                   .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace AgentHost
