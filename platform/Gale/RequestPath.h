#pragma once

#include "platform/Gale/PathPattern.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/Wire/Status.h"

#include <string>
#include <variant>

namespace gnmi {
class Path;
}

namespace Gale {

/// An absolute path of a request.
struct RequestPath {
    std::string origin;  ///< "openconfig" where the client names none
    PathPattern pattern;
};

/// Joins prefix and path. The status (InvalidArgument) says what is malformed: an empty element
/// name, the deprecated element field, a target inside the path, an origin in both or in the path
/// below a prefix, keys on "...", or more than the limits allow.
std::variant<RequestPath, Wire::Status> parseRequestPath(const gnmi::Path& prefix,
                                                         const gnmi::Path& path,
                                                         const Limits& limits);

}  // namespace Gale
