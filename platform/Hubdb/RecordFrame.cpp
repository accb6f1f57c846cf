#include "platform/Hubdb/RecordFrame.h"

#include <cstdint>

#include "platform/Vel/Assert.h"

namespace Hubdb {
namespace {
constexpr std::size_t kLengthBytes = 2;
}

std::string RecordFrame::encode() const {
    VEL_ASSERT(type.size() <= UINT16_MAX);
    std::string bytes;
    bytes.reserve(kLengthBytes + type.size() + record.size());
    bytes += static_cast<char>(type.size() >> 8);
    bytes += static_cast<char>(type.size());
    bytes += type;
    bytes += record;
    return bytes;
}

std::optional<RecordFrame> RecordFrame::decode(std::string_view bytes) {
    if (bytes.size() < kLengthBytes) { return std::nullopt; }
    const std::size_t length = static_cast<std::size_t>(static_cast<unsigned char>(bytes[0])) << 8 |
                               static_cast<unsigned char>(bytes[1]);
    bytes.remove_prefix(kLengthBytes);
    if (bytes.size() < length) { return std::nullopt; }
    return RecordFrame{bytes.substr(0, length), bytes.substr(length)};
}

}  // namespace Hubdb
