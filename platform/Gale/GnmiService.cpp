#include "platform/Gale/GnmiService.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/GetCall.h"
#include "platform/Gale/SubscribeCall.h"
#include "platform/Gale/UnaryCall.h"
#include "platform/Gale/Wire/Router.h"

#include <google/protobuf/stubs/logging.h>
#include <proto/gnmi.pb.h>

#include <algorithm>
#include <utility>

namespace Gale {

using Wire::Code;
using Wire::MethodKind;
using Wire::Status;

namespace {

constexpr const char* kGnmiVersion = "0.10.0";

template <class Request>
bool carries(const Request& request, gnmi_ext::Extension::ExtCase wanted) {
    return std::any_of(request.extension().begin(),
                       request.extension().end(),
                       [&](const auto& extension) { return extension.ext_case() == wanted; });
}

std::variant<gnmi::CapabilityResponse, Status> capabilities(
    const gnmi::CapabilityRequest& request, std::span<const std::unique_ptr<Channel>> channels) {
    if (carries(request, gnmi_ext::Extension::kDepth)) {
        return Status{Code::InvalidArgument, "extension depth does not apply to Capabilities"};
    }
    gnmi::CapabilityResponse response;
    for (const auto& channel : channels) {
        for (const ModelData& model : channel->view->models()) {
            gnmi::ModelData* const data = response.add_supported_models();
            data->set_name(model.name);
            data->set_organization(model.organization);
            data->set_version(model.version);
        }
    }
    for (const auto encoding : {gnmi::JSON, gnmi::PROTO, gnmi::JSON_IETF}) {
        response.add_supported_encodings(encoding);
    }
    response.set_gnmi_version(kGnmiVersion);
    return response;
}

std::variant<gnmi::SetResponse, Status> set(const gnmi::SetRequest& request,
                                            const Kiln::Clock& clock) {
    if (carries(request, gnmi_ext::Extension::kDepth)) {
        return Status{Code::InvalidArgument, "extension depth does not apply to Set"};
    }
    const int others = request.delete__size() + request.replace_size() + request.update_size();
    if (request.union_replace_size() > 0 && others > 0) {
        return Status{Code::InvalidArgument, "union_replace must stand alone"};
    }
    if (others + request.union_replace_size() > 0) {
        return Status{Code::PermissionDenied, "all that this server shows is read-only"};
    }
    gnmi::SetResponse response;
    response.set_timestamp(clock.wallNanoseconds());
    return response;
}

template <class Request, class Response, class Function>
Wire::HandlerFactory unary(Function function) {
    return [function = std::move(function)](Wire::Call& call) {
        return std::make_unique<UnaryCall<Request, Response>>(call, function);
    };
}

}  // namespace

GnmiService::GnmiService(const Kiln::Clock& clock,
                         StampClock& stamps,
                         std::span<const std::unique_ptr<Channel>> channels,
                         const Limits& limits,
                         Subscribers::Post post)
    : context_(clock, stamps, channels, limits, std::move(post)) {
    // Else every bad byte that a client sends would be a line on standard error.
    google::protobuf::SetLogHandler(nullptr);
}

void GnmiService::addTo(Wire::Router& router) {
    router.add("/gnmi.gNMI/Capabilities",
               MethodKind::Unary,
               unary<gnmi::CapabilityRequest, gnmi::CapabilityResponse>(
                   [this](const gnmi::CapabilityRequest& request) {
                       return capabilities(request, context_.channels);
                   }));
    router.add("/gnmi.gNMI/Get", MethodKind::Unary, [this](Wire::Call& call) {
        return std::make_unique<GetCall>(call, context_);
    });
    router.add("/gnmi.gNMI/Set",
               MethodKind::Unary,
               unary<gnmi::SetRequest, gnmi::SetResponse>([this](const gnmi::SetRequest& request) {
                   return set(request, context_.clock);
               }));
    router.add("/gnmi.gNMI/Subscribe", MethodKind::Bidi, [this](Wire::Call& call) {
        return std::make_unique<SubscribeCall>(call, context_);
    });
}

}  // namespace Gale
