#pragma once

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

/// Where deduplicated contents stand in the store, and the frame of one.
namespace Pel::Stash {

inline constexpr const char* kContentPath = "stash/content";  ///< record id to frame
inline constexpr const char* kContentType = "Pel::Stash::Content";
inline constexpr const char* kHashPath = "stash/contentByHash";  ///< hash to record ids
inline constexpr const char* kHashType = "Pel::Stash::ContentByHash";
inline constexpr const char* kFreePath = "stash/contentFree";  ///< recycled id to last version;
                                                               ///< id 0 to the highest id
inline constexpr const char* kFreeType = "Pel::Stash::ContentFree";

std::uint64_t contentHash(std::string_view content);

/// A content as stored: version of its id, number of users, hash, bytes.
struct ContentFrame {
    std::uint32_t version = 0;
    std::uint32_t users = 0;
    std::uint64_t hash = 0;
    std::string_view content;

    std::string encode() const;
    /// Nullopt when the bytes are no frame or the hash is not the content's.
    static std::optional<ContentFrame> decode(std::string_view bytes);
};

}  // namespace Pel::Stash
