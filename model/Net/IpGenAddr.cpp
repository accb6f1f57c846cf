#include "model/Net/IpGenAddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>

namespace Nexo {
namespace {

unsigned group(std::span<const std::uint8_t> bytes, unsigned i) {
    return static_cast<unsigned>(bytes[2 * i] << 8U | bytes[2 * i + 1]);
}

void appendNumber(std::string& to, unsigned value, int base) {
    std::array<char, 8> digits{};
    const auto end = std::to_chars(digits.begin(), digits.end(), value, base).ptr;
    to.append(digits.begin(), end);
}

/// The longest run of at least two zero groups, the first of equals: where it starts and its
/// length.
std::pair<unsigned, unsigned> longestZeroRun(std::span<const std::uint8_t> bytes) {
    std::pair<unsigned, unsigned> best{8, 0};
    for (unsigned i = 0; i < 8;) {
        unsigned end = i;
        while (end < 8 && group(bytes, end) == 0) { ++end; }
        if (end - i >= 2 && end - i > best.second) { best = {i, end - i}; }
        i = end + 1;
    }
    return best;
}

}  // namespace

IpGenAddr::IpGenAddr(std::span<const std::uint8_t> bytes) {
    if (bytes.size() != 4 && bytes.size() != 16) { return; }
    family_ = bytes.size() == 4 ? AddressFamily::ipv4 : AddressFamily::ipv6;
    std::copy(bytes.begin(), bytes.end(), bytes_.begin());
}

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
    const std::string terminated{text};
    std::array<std::uint8_t, 16> bytes{};
    if (inet_pton(AF_INET, terminated.c_str(), bytes.data()) == 1) {
        return IpGenAddr{std::span{bytes}.first<4>()};
    }
    if (inet_pton(AF_INET6, terminated.c_str(), bytes.data()) == 1) { return IpGenAddr{bytes}; }
    return std::nullopt;
}

std::string IpGenAddr::stringValue() const {
    std::string text;
    if (family_ == AddressFamily::ipv4) {
        for (unsigned i = 0; i < 4; ++i) {
            if (i > 0) { text += '.'; }
            appendNumber(text, bytes_[i], 10);
        }
    } else if (family_ == AddressFamily::ipv6) {
        const auto [start, length] = longestZeroRun(bytes_);
        for (unsigned i = 0; i < 8; ++i) {
            if (i == start) {
                text += "::";
                i += length - 1;
                continue;
            }
            if (i > 0 && i != start + length) { text += ':'; }
            appendNumber(text, group(bytes_, i), 16);
        }
    }
    return text;
}

}  // namespace Nexo
