#include "platform/Stash/ContentLayout.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace Pel::Stash {
namespace {

struct Header {
    std::uint32_t version;
    std::uint32_t users;
    std::uint64_t hash;
};
static_assert(sizeof(Header) == 16);

}  // namespace

std::uint64_t contentHash(std::string_view content) {
    return XXH3_64bits(content.data(), content.size());
}

std::string ContentFrame::encode() const {
    const Header header{version, users, hash};
    std::string bytes(sizeof header + content.size(), '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    if (!content.empty()) { std::memcpy(&bytes[sizeof header], content.data(), content.size()); }
    return bytes;
}

std::optional<ContentFrame> ContentFrame::decode(std::string_view bytes) {
    Header header{};
    if (bytes.size() < sizeof header) { return std::nullopt; }
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::string_view content = bytes.substr(sizeof header);
    if (contentHash(content) != header.hash) { return std::nullopt; }
    return ContentFrame{header.version, header.users, header.hash, content};
}

}  // namespace Pel::Stash
