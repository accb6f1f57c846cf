#pragma once

#include "platform/Gale/PathPattern.h"

#include <string>
#include <string_view>

// The elements of a concrete path as they stand in the bytes of a gNMI Path message.
namespace Gale::WirePath {

std::string_view name(std::string_view elem);
/// Appends the names of a path's elements with "/" between them and no keys.
void appendNames(std::string_view path, std::string& to);
/// The pattern's state after this element, keys included.
PathPattern::State step(const PathPattern& pattern,
                        PathPattern::State state,
                        std::string_view elem);

}  // namespace Gale::WirePath
