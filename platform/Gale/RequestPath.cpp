#include "platform/Gale/RequestPath.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace Gale {

namespace {

std::size_t bytesOf(const gnmi::Path& path) {
    std::size_t bytes = 0;
    for (const gnmi::PathElem& elem : path.elem()) {
        bytes += elem.name().size();
        for (const auto& [key, value] : elem.key()) { bytes += key.size() + value.size(); }
    }
    return bytes;
}

/// What is wrong with prefix and path as a whole; empty when nothing is.
std::string fault(const gnmi::Path& prefix, const gnmi::Path& path, const Limits& limits) {
    if (!prefix.element().empty() || !path.element().empty()) {
        return "field \"element\" of a path is deprecated; use \"elem\"";
    }
    if (!path.target().empty()) { return "a target belongs in the prefix, not in a path"; }
    if (!path.origin().empty()) {
        if (!prefix.origin().empty()) { return "an origin is in both prefix and path"; }
        if (!prefix.elem().empty()) {
            return "with elements in the prefix the origin belongs there too";
        }
    }
    const auto elements = static_cast<std::size_t>(prefix.elem_size() + path.elem_size());
    const std::size_t mostElements = std::min(limits.pathElements, PathPattern::kMaxElements);
    if (elements > mostElements) {
        return "a path of " + std::to_string(elements) + " elements, at most " +
               std::to_string(mostElements) + " are allowed";
    }
    const std::size_t bytes = bytesOf(prefix) + bytesOf(path) + prefix.target().size();
    if (bytes > limits.pathBytes) {
        return "a path of " + std::to_string(bytes) + " bytes, at most " +
               std::to_string(limits.pathBytes) + " are allowed";
    }
    return {};
}

/// Appends the elements; what is wrong with one of them, or empty.
std::string append(const gnmi::Path& from, PathPattern& to) {
    for (const gnmi::PathElem& elem : from.elem()) {
        if (elem.name().empty()) { return "an element without a name after " + to.text(); }
        if (elem.name() == "..." && !elem.key().empty()) { return "\"...\" takes no keys"; }
        std::vector<std::pair<std::string, std::string>> keys{elem.key().begin(), elem.key().end()};
        to.append(elem.name(), std::move(keys));
    }
    return {};
}

}  // namespace

std::variant<RequestPath, Wire::Status> parseRequestPath(const gnmi::Path& prefix,
                                                         const gnmi::Path& path,
                                                         const Limits& limits) {
    RequestPath result;
    std::string text = fault(prefix, path, limits);
    if (text.empty()) { text = append(prefix, result.pattern); }
    if (text.empty()) { text = append(path, result.pattern); }
    if (!text.empty()) { return Wire::Status{Wire::Code::InvalidArgument, "bad path: " + text}; }
    result.origin = !prefix.origin().empty() ? prefix.origin() : path.origin();
    if (result.origin.empty()) { result.origin = "openconfig"; }
    return result;
}

}  // namespace Gale
