#include "forwarder/Flatten/IpAddress.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstring>

namespace Pel::Forwarder {

IpAddress IpAddress::fromBytes(std::span<const std::byte> raw) {
    IpAddress result;
    if (raw.size() != 4 && raw.size() != 16) { return result; }
    result.family = raw.size() == 4 ? IpFamily::V4 : IpFamily::V6;
    std::memcpy(result.bytes.data(), raw.data(), raw.size());
    return result;
}

IpAddress IpAddress::parse(const std::string& text) {
    IpAddress result;
    if (inet_pton(AF_INET, text.c_str(), result.bytes.data()) == 1) {
        result.family = IpFamily::V4;
    } else if (inet_pton(AF_INET6, text.c_str(), result.bytes.data()) == 1) {
        result.family = IpFamily::V6;
    }
    return result;
}

std::string toString(const IpAddress& address) {
    if (address.isNone()) { return {}; }
    char text[INET6_ADDRSTRLEN] = {};
    const int family = address.family == IpFamily::V4 ? AF_INET : AF_INET6;
    inet_ntop(family, address.bytes.data(), text, sizeof text);
    return text;
}

IpPrefix IpPrefix::make(const IpAddress& address, std::uint8_t length) {
    IpPrefix result{address, length};
    for (std::size_t i = 0; i < result.address.bytes.size(); ++i) {
        const std::size_t firstBit = i * 8;
        if (firstBit + 8 <= length) { continue; }
        const std::size_t keep = firstBit >= length ? 0 : length - firstBit;
        result.address.bytes[i] &= static_cast<std::uint8_t>(0xFF00U >> keep);
    }
    return result;
}

IpPrefix IpPrefix::parse(const std::string& text) {
    const auto slash = text.find('/');
    if (slash == std::string::npos) { return {}; }
    const IpAddress address = IpAddress::parse(text.substr(0, slash));
    unsigned length = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + slash + 1, end, length);
    if (parsed.ec != std::errc{} || parsed.ptr != end || length > address.size() * 8) { return {}; }
    return make(address, static_cast<std::uint8_t>(length));
}

bool IpPrefix::isLinkLocal() const {
    return address.family == IpFamily::V6 && length >= 10 && address.bytes[0] == 0xFE &&
           (address.bytes[1] & 0xC0) == 0x80;
}

std::string toString(const IpPrefix& prefix) {
    return toString(prefix.address) + "/" + std::to_string(prefix.length);
}

}  // namespace Pel::Forwarder
