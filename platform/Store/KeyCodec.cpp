#include "platform/Store/KeyCodec.h"

namespace Store {

void appendBigEndian(std::string& to, std::uint64_t value) {
    for (int shift = 56; shift >= 0; shift -= 8) { to += static_cast<char>(value >> shift); }
}

std::optional<std::uint64_t> takeBigEndian(std::string_view& from) {
    if (from.size() < sizeof(std::uint64_t)) { return std::nullopt; }
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i) {
        value = value << 8 | static_cast<unsigned char>(from[i]);
    }
    from.remove_prefix(sizeof value);
    return value;
}

}  // namespace Store
