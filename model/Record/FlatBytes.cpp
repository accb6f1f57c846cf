#include "model/Record/FlatBytes.h"

#include <cstring>
#include <vector>

namespace Pel::Record {

std::span<const std::uint8_t> aligned(std::string_view bytes) {
    static thread_local std::vector<std::uint64_t> copy;
    copy.resize(bytes.size() / sizeof(std::uint64_t) + 1);
    if (!bytes.empty()) { std::memcpy(copy.data(), bytes.data(), bytes.size()); }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes of the copy
    return {reinterpret_cast<const std::uint8_t*>(copy.data()), bytes.size()};
}

flatbuffers::FlatBufferBuilder& builder() {
    static thread_local flatbuffers::FlatBufferBuilder reused{512};
    reused.Clear();
    return reused;
}

}  // namespace Pel::Record
