#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Hubdb {

inline constexpr const char* kTablePath = "hubdb";
inline constexpr const char* kTableType = "hubdb";

/// A published entity as stored: the length of its type's name (two bytes, big-endian), that name,
/// the record.
struct RecordFrame {
    std::string_view type;
    std::string_view record;

    std::string encode() const;
    /// Nullopt when the bytes are no frame.
    static std::optional<RecordFrame> decode(std::string_view bytes);
};

}  // namespace Hubdb
