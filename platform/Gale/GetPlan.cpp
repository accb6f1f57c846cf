#include "platform/Gale/GetPlan.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/RequestCheck.h"

#include <proto/gnmi.pb.h>

#include <utility>

namespace Gale {

using Wire::Status;

std::variant<GetPlan, Status> planGet(const gnmi::GetRequest& request,
                                      std::span<const std::unique_ptr<Channel>> channels,
                                      const Limits& limits) {
    if (auto bad = RequestCheck::extensions(request.extension())) { return std::move(*bad); }
    if (auto bad =
            RequestCheck::count(request.path_size(), "paths", request.use_models_size(), limits)) {
        return std::move(*bad);
    }
    const auto type = static_cast<int>(request.type());
    if (!gnmi::GetRequest::DataType_IsValid(type)) {
        return RequestCheck::invalid("unknown type " + std::to_string(type));
    }
    const auto encoding = RequestCheck::encoding(static_cast<int>(request.encoding()));
    if (const auto* const bad = std::get_if<Status>(&encoding)) { return *bad; }

    GetPlan plan;
    plan.encoding = std::get<ValueEncoding>(encoding);
    plan.target = request.prefix().target();
    plan.config = type == gnmi::GetRequest::ALL || type == gnmi::GetRequest::CONFIG;
    plan.state = type != gnmi::GetRequest::CONFIG;
    for (const gnmi::Path& path : request.path()) {
        auto checked = RequestCheck::path(request.prefix(), path, channels, limits);
        if (auto* const bad = std::get_if<Status>(&checked)) { return std::move(*bad); }
        auto& served = std::get<RequestCheck::Served>(checked);
        std::vector<PathPattern> pattern;
        pattern.push_back(std::move(served.pattern));
        GetPlan::Part part;
        part.channel = served.channel;
        part.filter = std::make_shared<const EntryFilter>(
            *part.channel->view, part.channel->schema, std::move(pattern));
        part.hidden = !RequestCheck::modelsWanted(request.use_models(), *part.channel->view);
        plan.parts.push_back(std::move(part));
    }
    return plan;
}

}  // namespace Gale
