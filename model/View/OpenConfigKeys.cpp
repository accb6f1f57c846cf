#include "model/View/OpenConfigKeys.h"

#include <algorithm>
#include <string>

namespace Pel::OcApi::OpenConfigKeys {

namespace {

std::uint64_t bigEndian(const std::uint8_t* bytes, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i) { value = value << 8U | bytes[i]; }
    return value;
}

void putBigEndian(std::uint8_t* bytes, std::size_t count, std::uint64_t value) {
    for (std::size_t i = count; i > 0; --i, value >>= 8U) {
        bytes[i - 1] = static_cast<std::uint8_t>(value);
    }
}

}  // namespace

Gale::EntryKey ofPrefix(std::uint32_t instance, const Nexo::IpPrefix& prefix) {
    std::array<std::uint8_t, 16> bytes{};
    const auto address = prefix.address().bytes();
    std::copy(address.begin(), address.end(), bytes.begin());
    Gale::EntryKey key = ofInstance(instance);
    key.scope |=
        static_cast<std::uint64_t>(prefix.address().family()) << 16U | bigEndian(bytes.data(), 2);
    key.hi = bigEndian(bytes.data() + 2, 8);
    key.lo = bigEndian(bytes.data() + 10, 6) << 16U | prefix.length();
    return key;
}

Nexo::IpPrefix prefixOf(const Gale::EntryKey& key) {
    std::array<std::uint8_t, 16> bytes{};
    putBigEndian(bytes.data(), 2, key.scope & 0xFFFFU);
    putBigEndian(bytes.data() + 2, 8, key.hi);
    putBigEndian(bytes.data() + 10, 6, key.lo >> 16U);
    const std::size_t width = familyOf(key) == Nexo::AddressFamily::ipv4 ? 4 : 16;
    return {Nexo::IpGenAddr{{bytes.data(), width}}, static_cast<unsigned>(key.lo & 0xFFFFU)};
}

PrefixText::PrefixText(const Nexo::IpPrefix& prefix) {
    const auto bytes = prefix.address().bytes();
    if (bytes.size() != 4) {
        // Longer than a short string anyway; the address knows how it is written.
        const std::string text = prefix.stringValue();
        size_ = text.copy(text_.data(), text_.size());
        return;
    }
    char* at = text_.data();
    char* const end = at + text_.size();
    for (const std::uint8_t byte : bytes) {
        at = std::to_chars(at, end, byte).ptr;
        *at++ = '.';
    }
    at[-1] = '/';
    at = std::to_chars(at, end, prefix.length()).ptr;
    size_ = static_cast<std::size_t>(at - text_.data());
}

}  // namespace Pel::OcApi::OpenConfigKeys
