#include "forwarder/Scenario/FieldReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <set>

namespace Pel::Forwarder {

namespace {

constexpr double kMaxSeconds = 30.0 * 24 * 3600;

const std::vector<YamlNode> kNoNodes;

std::optional<std::uint64_t> toNumber(std::string_view text) {
    const bool hex = text.starts_with("0x");
    if (hex) { text.remove_prefix(2); }
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value, hex ? 16 : 10);
    return error == std::errc{} && last == end ? std::optional{value} : std::nullopt;
}

std::string described(const YamlNode& node) {
    switch (node.kind) {
        case YamlNode::Kind::null:
            return "nothing";
        case YamlNode::Kind::scalar:
            return inQuotes(node.text);
        case YamlNode::Kind::list:
            return "a list";
        case YamlNode::Kind::map:
            return "a map";
    }
    return "";
}

std::string listed(const std::vector<std::string_view>& words) {
    std::string text;
    for (const std::string_view word : words) {
        text += (text.empty() ? "" : ", ") + std::string{word};
    }
    return text;
}

}  // namespace

std::nullopt_t ValueReader::expected(const YamlNode& node, const std::string& what) const {
    problems_.add(node.place, "expected " + what + ", not " + described(node));
    return std::nullopt;
}

std::optional<std::string> ValueReader::text(const YamlNode& node, std::size_t maxBytes) const {
    if (node.kind != YamlNode::Kind::scalar || node.text.empty() || node.text.size() > maxBytes ||
        node.text.find('\0') != std::string::npos) {
        return expected(node, "a text of 1 to " + std::to_string(maxBytes) + " bytes");
    }
    return node.text;
}

std::optional<std::uint64_t> ValueReader::number(const YamlNode& node,
                                                 std::uint64_t min,
                                                 std::uint64_t max) const {
    const auto value = node.kind == YamlNode::Kind::scalar ? toNumber(node.text) : std::nullopt;
    if (!value || *value < min || *value > max) {
        return expected(
            node, "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
    }
    return value;
}

std::optional<bool> ValueReader::flag(const YamlNode& node) const {
    if (node.kind == YamlNode::Kind::scalar && (node.text == "true" || node.text == "false")) {
        return node.text == "true";
    }
    return expected(node, "true or false");
}

std::optional<Kiln::Duration> ValueReader::duration(const YamlNode& node) const {
    const std::string_view text = node.text;
    const auto unitAt = std::find_if(
        text.begin(), text.end(), [](char c) { return (c < '0' || c > '9') && c != '.'; });
    const std::string_view digits{text.data(), static_cast<std::size_t>(unitAt - text.begin())};
    const std::string_view unit = text.substr(digits.size());
    const double scale = unit == "ms"  ? 1e-3
                         : unit == "s" ? 1
                         : unit == "m" ? 60
                         : unit == "h" ? 3600
                                       : 0;
    double value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [last, error] = std::from_chars(digits.data(), end, value, std::chars_format::fixed);
    const bool good = error == std::errc{} && last == end && scale > 0;
    if (!good || value * scale > kMaxSeconds) {
        return expected(node, "a time such as 1.5s, 200ms, 2m or 1h, at most 720h");
    }
    return std::chrono::duration_cast<Kiln::Duration>(std::chrono::duration<double>{value * scale});
}

std::optional<Nexo::IpGenAddr> ValueReader::address(const YamlNode& node) const {
    if (auto value = Nexo::IpGenAddr::parse(node.text)) { return value; }
    return expected(node, "an IPv4 or IPv6 address");
}

std::optional<Nexo::IpPrefix> ValueReader::prefix(const YamlNode& node) const {
    const auto value = Nexo::IpPrefix::parse(node.text);
    if (!value) { return expected(node, "a prefix such as 10.0.0.0/8 or 2001:db8::/32"); }
    const auto address = Nexo::IpGenAddr::parse(node.text.substr(0, node.text.find('/')));
    if (address != value->address()) {
        return expected(node, value->stringValue() + ", without bits beyond the length");
    }
    return value;
}

std::optional<Nexo::EthAddr> ValueReader::mac(const YamlNode& node) const {
    std::array<std::uint8_t, 6> bytes{};
    std::string_view text = node.text;
    bool good = text.size() == 17;
    for (std::size_t i = 0; good && i < bytes.size(); ++i) {
        const char* const from = text.data() + 3 * i;
        const auto [last, error] = std::from_chars(from, from + 2, bytes[i], 16);
        good = error == std::errc{} && last == from + 2 && (i == 5 || *last == ':');
    }
    if (!good) { return expected(node, "a MAC address such as 02:00:00:00:00:01"); }
    return Nexo::EthAddr{bytes};
}

const std::vector<YamlNode>& ValueReader::list(const YamlNode& node) const {
    if (node.kind == YamlNode::Kind::list) { return node.items; }
    expected(node, "a list");
    return kNoNodes;
}

void ValueReader::checkKeysOnce(const YamlNode& map) const {
    std::set<std::string_view> seen;
    for (std::size_t i = 0; i + 1 < map.items.size(); i += 2) {
        const YamlNode& key = map.items[i];
        if (!seen.insert(key.text).second) {
            problems_.add(key.place, "the key " + inQuotes(key.text) + " comes twice");
        }
    }
}

FieldReader::FieldReader(const YamlNode& node,
                         std::initializer_list<std::string_view> known,
                         const ValueReader& values)
    : node_{node}, known_{known}, found_(known.size(), nullptr), values_{values} {
    if (node.kind != YamlNode::Kind::map) {
        values.expected(node, "a map");
        return;
    }
    for (std::size_t i = 0; i + 1 < node.items.size(); i += 2) {
        const YamlNode& key = node.items[i];
        const auto at = std::find(known_.begin(), known_.end(), key.text);
        if (key.kind != YamlNode::Kind::scalar || at == known_.end()) {
            const std::string_view meant = nearest(key.text, known_);
            values.problems().add(key.place,
                                  "unknown key " + inQuotes(key.text) +
                                      (meant.empty() ? "; the keys here are " + listed(known_)
                                                     : "; did you mean " + inQuotes(meant) + "?"));
            continue;
        }
        const YamlNode*& found = found_[static_cast<std::size_t>(at - known_.begin())];
        if (found != nullptr) {
            values.problems().add(key.place, "the key " + inQuotes(key.text) + " comes twice");
        }
        found = &node.items[i + 1];
    }
}

const YamlNode* FieldReader::find(std::string_view key) const {
    const auto at = std::find(known_.begin(), known_.end(), key);
    return at == known_.end() ? nullptr : found_[static_cast<std::size_t>(at - known_.begin())];
}

const YamlNode* FieldReader::need(std::string_view key) const {
    const YamlNode* found = find(key);
    if (found == nullptr && node_.kind == YamlNode::Kind::map) {
        values_.problems().add(node_.place, "expected the key " + inQuotes(key));
    }
    return found;
}

void FieldReader::read(std::string_view key, std::string& to, std::size_t maxBytes) const {
    const YamlNode* node = find(key);
    if (auto value = node != nullptr ? values_.text(*node, maxBytes) : std::nullopt) {
        to = std::move(*value);
    }
}

void FieldReader::read(std::string_view key, bool& to) const {
    const YamlNode* node = find(key);
    if (const auto value = node != nullptr ? values_.flag(*node) : std::nullopt) { to = *value; }
}

}  // namespace Pel::Forwarder
