#include "model/Net/IpPrefix.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/Vel/Errors.h"

namespace Nexo {

IpPrefix::IpPrefix(const IpGenAddr& address, unsigned length) {
    if (length > address.width() * 8) {
        throw Vel::RangeError{"Nexo::IpPrefix::length > width of the address not allowed"};
    }
    std::array<std::uint8_t, 16> bytes{};
    std::copy(address.bytes().begin(), address.bytes().end(), bytes.begin());
    for (unsigned i = 0; i < address.width(); ++i) {
        const unsigned kept = std::clamp(length, i * 8, i * 8 + 8) - i * 8;
        bytes[i] = static_cast<std::uint8_t>(bytes[i] & (0xFF00U >> kept));
    }
    address_ = IpGenAddr{std::span{bytes}.first(address.width())};
    length_ = static_cast<std::uint8_t>(length);
}

std::optional<IpPrefix> IpPrefix::parse(std::string_view text) {
    const auto slash = text.find('/');
    if (slash == std::string_view::npos) { return std::nullopt; }
    const auto address = IpGenAddr::parse(text.substr(0, slash));
    unsigned length = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + slash + 1, end, length);
    if (!address || error != std::errc{} || rest != end || length > address->width() * 8) {
        return std::nullopt;
    }
    return IpPrefix{*address, length};
}

std::string IpPrefix::stringValue() const {
    return address_.stringValue() + "/" + std::to_string(length_);
}

}  // namespace Nexo

std::string Store::KeyCodec<Nexo::IpPrefix>::encode(const Nexo::IpPrefix& key) {
    std::string bytes(1, static_cast<char>(key.address().family()));
    for (const std::uint8_t byte : key.address().bytes()) { bytes += static_cast<char>(byte); }
    bytes += static_cast<char>(key.length());
    return bytes;
}

std::optional<Nexo::IpPrefix> Store::KeyCodec<Nexo::IpPrefix>::decode(std::string_view bytes) {
    if (bytes.size() != 6 && bytes.size() != 18) { return std::nullopt; }
    std::array<std::uint8_t, 18> raw{};
    std::copy(bytes.begin(), bytes.end(), raw.begin());
    const Nexo::IpGenAddr address{std::span{raw}.subspan(1, bytes.size() - 2)};
    const unsigned length = raw[bytes.size() - 1];
    if (raw[0] != static_cast<std::uint8_t>(address.family()) || length > address.width() * 8) {
        return std::nullopt;
    }
    const Nexo::IpPrefix prefix{address, length};
    // Two spellings of one prefix would be two keys of one entry.
    return prefix.address() == address ? std::optional{prefix} : std::nullopt;
}
