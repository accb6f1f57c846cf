#pragma once

#include "platform/Gale/EntryFilter.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/ValueEncoding.h"
#include "platform/Gale/Wire/Status.h"

#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace gnmi {
class GetRequest;
}

namespace Gale {

class Channel;

/// What a Get call asks for, checked and compiled.
struct GetPlan {
    /// One requested path. Its pattern is the filter's only one.
    struct Part {
        Channel* channel = nullptr;
        std::shared_ptr<const EntryFilter> filter;
        bool hidden = false;  ///< the client wants models only that are not this path's
        const PathPattern& pattern() const { return filter->patterns().front(); }
    };
    std::vector<Part> parts;  ///< in the order of the request
    std::string target;       ///< echoed in every Notification; empty: none
    ValueEncoding encoding = ValueEncoding::proto;
    bool config = true;  ///< leaves of configuration are wanted
    bool state = true;   ///< leaves of state are wanted
};

/// The plan of a Get, or the status that ends the call.
std::variant<GetPlan, Wire::Status> planGet(const gnmi::GetRequest& request,
                                            std::span<const std::unique_ptr<Channel>> channels,
                                            const Limits& limits);

}  // namespace Gale
