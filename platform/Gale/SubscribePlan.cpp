#include "platform/Gale/SubscribePlan.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/RequestPath.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace Gale {

using Wire::Code;
using Wire::Status;

namespace {

Status invalid(std::string text) {
    return {Code::InvalidArgument, std::move(text)};
}
Status unimplemented(std::string text) {
    return {Code::Unimplemented, std::move(text)};
}

/// Extensions whose neglect would give wrong data are refused, others ignored.
std::optional<Status> checkExtensions(const gnmi::SubscribeRequest& request) {
    for (const gnmi_ext::Extension& extension : request.extension()) {
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

std::optional<Status> checkEncoding(gnmi::Encoding encoding) {
    if (encoding == gnmi::PROTO) { return std::nullopt; }
    const std::string name = gnmi::Encoding_IsValid(encoding)
                                 ? gnmi::Encoding_Name(encoding)
                                 : std::to_string(static_cast<int>(encoding));
    return unimplemented("encoding " + name + " is not served; ask for PROTO");
}

/// How a stream's subscription wants its updates; meaningless in the other modes.
std::optional<Status> checkStreamMode(const gnmi::Subscription& subscription,
                                      const std::string& path) {
    switch (static_cast<int>(subscription.mode())) {
        case gnmi::SAMPLE:
            return unimplemented("mode SAMPLE is not served (" + path + "); ask for ON_CHANGE");
        case gnmi::TARGET_DEFINED:
            if (subscription.sample_interval() != 0) {
                return invalid("sample_interval has no meaning in mode TARGET_DEFINED (" + path +
                               ")");
            }
            break;
        case gnmi::ON_CHANGE:
            break;
        default:
            return invalid("unknown subscription mode " +
                           std::to_string(static_cast<int>(subscription.mode())) + " (" + path +
                           ")");
    }
    if (subscription.heartbeat_interval() != 0) {
        return unimplemented("heartbeat_interval is not served (" + path + ")");
    }
    return std::nullopt;
}

std::optional<Status> checkList(const gnmi::SubscriptionList& list, const Limits& limits) {
    const int mode = static_cast<int>(list.mode());
    if (mode == gnmi::SubscriptionList::POLL) {
        return unimplemented("mode POLL is not served; ask for ONCE again and again, or STREAM");
    }
    if (mode != gnmi::SubscriptionList::STREAM && mode != gnmi::SubscriptionList::ONCE) {
        return invalid("unknown mode " + std::to_string(mode));
    }
    if (list.subscription().empty()) { return invalid("the subscription list is empty"); }
    if (static_cast<std::size_t>(list.subscription_size()) > limits.subscriptionsPerCall) {
        return Status{Code::ResourceExhausted,
                      std::to_string(list.subscription_size()) + " subscriptions, at most " +
                          std::to_string(limits.subscriptionsPerCall) + " are allowed in a call"};
    }
    return checkEncoding(list.encoding());
}

/// Data of other modules than those named must not be shown. All of a view's data belongs to all of
/// its modules here: naming one of them shows everything.
bool modelsWanted(const gnmi::SubscriptionList& list, const View& view) {
    if (list.use_models().empty()) { return true; }
    return std::any_of(list.use_models().begin(), list.use_models().end(), [&](const auto& wanted) {
        return std::any_of(view.models().begin(), view.models().end(), [&](const auto& model) {
            return model.name == wanted.name() &&
                   (wanted.version().empty() || model.version == wanted.version());
        });
    });
}

Channel* channelOf(const std::string& origin, std::span<const std::unique_ptr<Channel>> channels) {
    for (const auto& channel : channels) {
        if (channel->origin == origin) { return channel.get(); }
    }
    return nullptr;
}

std::optional<Status> checkNode(const PathPattern& path, const Schema& schema) {
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

std::variant<SubscribePlan, Status> planSubscribe(
    const gnmi::SubscribeRequest& request,
    std::span<const std::unique_ptr<Channel>> channels,
    const Limits& limits) {
    if (auto bad = checkExtensions(request)) { return *bad; }
    const gnmi::SubscriptionList& list = request.subscribe();
    if (auto bad = checkList(list, limits)) { return *bad; }
    const bool once = list.mode() == gnmi::SubscriptionList::ONCE;

    SubscribePlan plan;
    std::vector<PathPattern> patterns;
    for (const gnmi::Subscription& subscription : list.subscription()) {
        auto parsed = parseRequestPath(list.prefix(), subscription.path(), limits);
        if (auto* bad = std::get_if<Status>(&parsed)) { return *bad; }
        auto& path = std::get<RequestPath>(parsed);
        if (!once) {
            if (auto bad = checkStreamMode(subscription, path.pattern.text())) { return *bad; }
        }
        Channel* const channel = channelOf(path.origin, channels);
        if (channel == nullptr) {
            return unimplemented("origin \"" + path.origin + "\" is not served");
        }
        if (plan.channel != nullptr && plan.channel != channel) {
            return unimplemented("one call cannot subscribe to several origins");
        }
        plan.channel = channel;
        if (auto bad = checkNode(path.pattern, channel->schema)) { return *bad; }
        patterns.push_back(std::move(path.pattern));
    }
    // No state is wanted and none will come: a filter that shows nothing leaves the sync alone.
    const bool nothing = once && list.updates_only();
    if (nothing || !modelsWanted(list, *plan.channel->view)) { patterns.clear(); }
    if (once) {
        plan.mode = Cursor::Mode::once;
    } else if (list.updates_only()) {
        plan.mode = Cursor::Mode::updatesOnly;
    }
    plan.target = list.prefix().target();
    plan.filter = std::make_shared<const EntryFilter>(
        *plan.channel->view, plan.channel->schema, std::move(patterns));
    return plan;
}

}  // namespace Gale
