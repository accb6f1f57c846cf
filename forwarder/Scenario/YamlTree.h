#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "forwarder/Scenario/Problems.h"

namespace Pel::Forwarder {

/// A node of a YAML document, and where it stands.
struct YamlNode {
    enum class Kind : std::uint8_t { null, scalar, list, map };
    Kind kind = Kind::null;
    Place place;
    std::string text;             ///< of a scalar
    std::vector<YamlNode> items;  ///< of a list; of a map key and value in turn
};

/// Bounds of what is parsed at all, so that no file can take the process's memory or time.
inline constexpr std::size_t kMaxYamlBytes = std::size_t{16} << 20;
inline constexpr std::size_t kMaxYamlNodes = 4'000'000;
inline constexpr std::size_t kMaxYamlDepth = 16;

/// The one document of `text`. Nullopt, and a problem, when it is not well-formed, too large, too deep, or has aliases,
/// with which a few lines can stand for any number of nodes.
std::optional<YamlNode> parseYaml(std::string_view text, Problems& problems);

}  // namespace Pel::Forwarder
