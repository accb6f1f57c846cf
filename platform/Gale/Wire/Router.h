#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {

enum class MethodKind { Unary, ServerStreaming, Bidi };

/// Which handler serves which path. Filled before the server starts, only read afterwards.
class Router {
public:
    struct Method {
        MethodKind kind;
        HandlerFactory factory;
    };

    /// `path` is "/package.Service/Method", case-sensitive. A later add of the same path wins.
    void add(std::string path, MethodKind kind, HandlerFactory factory);
    /// Null when nobody serves `path` (the call then ends with UNIMPLEMENTED).
    const Method* find(std::string_view path) const;

private:
    std::map<std::string, Method, std::less<>> methods_;
};

}  // namespace Gale::Wire
