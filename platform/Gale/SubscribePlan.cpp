#include "platform/Gale/SubscribePlan.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/RequestCheck.h"
#include "platform/Gale/StreamWishes.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace Gale {

using RequestCheck::invalid;
using RequestCheck::unimplemented;
using Wire::Status;

namespace {

std::optional<Status> checkMode(int mode) {
    if (gnmi::SubscriptionList::Mode_IsValid(mode)) { return std::nullopt; }
    return invalid("unknown mode " + std::to_string(mode));
}

}  // namespace

std::variant<SubscribePlan, Status> planSubscribe(
    const gnmi::SubscribeRequest& request,
    std::span<const std::unique_ptr<Channel>> channels,
    const Limits& limits) {
    if (auto bad = RequestCheck::extensions(request.extension())) { return std::move(*bad); }
    const gnmi::SubscriptionList& list = request.subscribe();
    if (auto bad = checkMode(static_cast<int>(list.mode()))) { return std::move(*bad); }
    if (auto bad = RequestCheck::count(
            list.subscription_size(), "subscriptions", list.use_models_size(), limits)) {
        return std::move(*bad);
    }
    const auto encoding = RequestCheck::encoding(static_cast<int>(list.encoding()));
    if (const auto* const bad = std::get_if<Status>(&encoding)) { return *bad; }
    const bool stream = list.mode() == gnmi::SubscriptionList::STREAM;

    SubscribePlan plan;
    plan.encoding = std::get<ValueEncoding>(encoding);
    std::vector<PathPattern> patterns;
    StreamWishes wishes{limits};
    for (const gnmi::Subscription& subscription : list.subscription()) {
        auto checked = RequestCheck::path(list.prefix(), subscription.path(), channels, limits);
        if (auto* const bad = std::get_if<Status>(&checked)) { return std::move(*bad); }
        auto& path = std::get<RequestCheck::Served>(checked);
        if (stream) {
            if (auto bad = wishes.add(subscription, path.pattern)) { return std::move(*bad); }
        }
        if (plan.channel != nullptr && plan.channel != path.channel) {
            return unimplemented("one call cannot subscribe to several origins");
        }
        plan.channel = path.channel;
        patterns.push_back(std::move(path.pattern));
    }
    plan.paths = patterns.size();
    // No state is wanted and none will come: a filter that shows nothing leaves the sync alone.
    const bool nothing = (!stream && list.updates_only()) ||
                         !RequestCheck::modelsWanted(list.use_models(), *plan.channel->view);
    if (nothing) { patterns.clear(); }
    plan.poll = list.mode() == gnmi::SubscriptionList::POLL;
    if (!stream) {
        plan.mode = Cursor::Mode::once;
    } else if (list.updates_only()) {
        plan.mode = Cursor::Mode::updatesOnly;
    }
    plan.target = list.prefix().target();
    plan.filter = std::make_shared<const EntryFilter>(
        *plan.channel->view, plan.channel->schema, std::move(patterns));
    plan.cursorFilter = EntryFilter::forCursor(plan.filter);
    if (stream && !nothing) { wishes.applyTo(plan); }
    return plan;
}

}  // namespace Gale
