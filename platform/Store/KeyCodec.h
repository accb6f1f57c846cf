#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Store {

/// How a key type becomes bytes whose order is the keys' order, and back. Specialised beside the
/// key type; decode answers nullopt for bytes that are no key.
template <class Key>
struct KeyCodec;

/// Big-endian, so that byte order is number order.
void appendBigEndian(std::string& to, std::uint64_t value);
std::optional<std::uint64_t> takeBigEndian(std::string_view& from);

template <>
struct KeyCodec<std::string> {
    static std::string encode(const std::string& key) { return key; }
    static std::optional<std::string> decode(std::string_view bytes) { return std::string{bytes}; }
};

template <>
struct KeyCodec<std::uint64_t> {
    static std::string encode(std::uint64_t key) {
        std::string bytes;
        appendBigEndian(bytes, key);
        return bytes;
    }
    static std::optional<std::uint64_t> decode(std::string_view bytes) {
        const auto value = takeBigEndian(bytes);
        return bytes.empty() ? value : std::nullopt;
    }
};

}  // namespace Store
