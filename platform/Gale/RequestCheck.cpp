#include "platform/Gale/RequestCheck.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/RequestPath.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <utility>

namespace Gale::RequestCheck {

using Wire::Code;
using Wire::Status;

namespace {

Channel* channelOf(const std::string& origin, std::span<const std::unique_ptr<Channel>> channels) {
    for (const auto& channel : channels) {
        if (channel->origin == origin) { return channel.get(); }
    }
    return nullptr;
}

std::optional<Status> node(const PathPattern& path, const Schema& schema) {
    switch (schema.check(path)) {
        case Schema::Verdict::known:
            return std::nullopt;
        case Schema::Verdict::unknownNode:
            return unimplemented("path " + path.text() + " is not served");
        case Schema::Verdict::unknownKey:
            return invalid("path " + path.text() + " has a key that its list does not have");
    }
    return std::nullopt;
}

}  // namespace

Status invalid(std::string text) {
    return {Code::InvalidArgument, std::move(text)};
}
Status unimplemented(std::string text) {
    return {Code::Unimplemented, std::move(text)};
}

std::optional<Status> extensions(const Repeated<gnmi_ext::Extension>& all) {
    for (const gnmi_ext::Extension& extension : all) {
        switch (extension.ext_case()) {
            case gnmi_ext::Extension::kHistory:
                return unimplemented("extension history: this server keeps no history");
            case gnmi_ext::Extension::kCommit:
                return unimplemented("extension commit: nothing can be configured here");
            case gnmi_ext::Extension::kConfigSubscription:
                return unimplemented(
                    "extension config_subscription: there is no configuration to subscribe to");
            case gnmi_ext::Extension::kDepth:
                return unimplemented("extension depth is not served");
            default:
                break;
        }
    }
    return std::nullopt;
}

std::variant<ValueEncoding, Status> encoding(int number) {
    switch (number) {
        case gnmi::PROTO:
            return ValueEncoding::proto;
        case gnmi::JSON:
            return ValueEncoding::json;
        case gnmi::JSON_IETF:
            return ValueEncoding::jsonIetf;
        default:
            break;
    }
    const std::string name = gnmi::Encoding_IsValid(number)
                                 ? gnmi::Encoding_Name(static_cast<gnmi::Encoding>(number))
                                 : std::to_string(number);
    return unimplemented("encoding " + name + " is not served; ask for PROTO, JSON_IETF or JSON");
}

std::optional<Status> count(int paths, const char* what, int models, const Limits& limits) {
    if (paths == 0) { return invalid(std::string{"there are no "} + what + " in the request"); }
    const auto most = static_cast<int>(limits.subscriptionsPerCall);
    if (paths <= most && models <= most) { return std::nullopt; }
    const std::string these =
        paths > most ? std::to_string(paths) + " " + what : std::to_string(models) + " use_models";
    return Status{Code::ResourceExhausted,
                  these + ", at most " + std::to_string(most) + " are allowed in a call"};
}

std::variant<Served, Status> path(const gnmi::Path& prefix,
                                  const gnmi::Path& path,
                                  std::span<const std::unique_ptr<Channel>> channels,
                                  const Limits& limits) {
    auto parsed = parseRequestPath(prefix, path, limits);
    if (auto* const bad = std::get_if<Status>(&parsed)) { return std::move(*bad); }
    auto& wanted = std::get<RequestPath>(parsed);
    Channel* const channel = channelOf(wanted.origin, channels);
    if (channel == nullptr) {
        return unimplemented("origin \"" + wanted.origin + "\" is not served");
    }
    if (auto bad = node(wanted.pattern, channel->schema)) { return std::move(*bad); }
    return Served{channel, std::move(wanted.pattern)};
}

bool modelsWanted(const Repeated<gnmi::ModelData>& wanted, const View& view) {
    if (wanted.empty()) { return true; }
    return std::any_of(wanted.begin(), wanted.end(), [&](const auto& each) {
        return std::any_of(view.models().begin(), view.models().end(), [&](const auto& model) {
            return model.name == each.name() &&
                   (each.version().empty() || model.version == each.version());
        });
    });
}

}  // namespace Gale::RequestCheck
