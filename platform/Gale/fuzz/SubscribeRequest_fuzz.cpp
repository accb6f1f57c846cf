#include "platform/Gale/Channel.h"
#include "platform/Gale/GetAnswer.h"
#include "platform/Gale/GetPlan.h"
#include "platform/Gale/LeafFilter.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/SubscribePlan.h"
#include "platform/Gale/test/TestView.h"
#include "platform/Kiln/Clock.h"
#include "platform/Vel/Assert.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <google/protobuf/stubs/logging.h>
#include <proto/gnmi.pb.h>

// Whatever a client sends as its first message, to Subscribe or to Get, ends in a plan that works, or
// in a status with a text; a Get's plan ends in an answer over a small journal, or in such a status.

namespace {

const Gale::PackedNotification& sample() {
    static const Gale::PackedNotification notification = [] {
        Gale::PackedNotification made;
        Gale::NotificationWriter writer{made};
        const std::vector<std::string_view> keys{"main", "1"};
        made.stampIs(1);
        writer.prefix(Gale::PathTemplate{"zoo[name]/beasts/beast[index]", "openconfig"}, keys);
        writer.leaf(Gale::PathTemplate{"state/colour"}, {}, std::string_view{"red"});
        writer.atomic();
        return made;
    }();
    return notification;
}

using Channels = std::vector<std::unique_ptr<Gale::Channel>>;

const Channels& channels() {
    static const auto* const all = [] {
        auto* const made = new Channels;
        made->push_back(std::make_unique<Gale::Channel>(
            "openconfig", std::make_unique<Gale::TestView>(), [] {}));
        Gale::Journal& journal = made->front()->journal;
        journal.update(Gale::Lane::nextHops, {0, 0, 1}, sample().bytes());
        journal.updateValue(Gale::Lane::prefixes, {0, 0, 5}, 7, 1);
        journal.updateValue(Gale::Lane::prefixes, {0, 0, 6}, 7, 1);
        return made;
    }();
    return *all;
}

void use(const Gale::Wire::Status& status) {
    VEL_ASSERT(!status.ok() && !status.message.empty());
}

void use(const Gale::SubscribePlan& plan) {
    for (std::size_t lane = 0; lane < Gale::kLanes; ++lane) {
        if (lane < 4) { plan.filter->of(Gale::laneAt(lane), {0, 0, 1}); }
    }
    std::string cut;
    Gale::LeafFilter filter{plan.filter->patterns()};
    std::string unpacked;
    Gale::PackedNotification::unpack(sample().bytes(), unpacked);
    if (filter.cut(unpacked, cut)) {
        gnmi::Notification notification;
        VEL_ASSERT(notification.ParseFromString(cut));
        VEL_ASSERT(notification.update_size() == 1 && notification.atomic());
    }
}

void use(const Gale::GetPlan& plan) {
    static const Kiln::VirtualClock clock;
    static const Gale::Limits limits{.getBytes = 1000};
    using State = Gale::GetAnswer::State;
    Gale::GetAnswer answer{plan, limits, clock, [] {}};
    State state = State::more;
    while (state == State::more) { state = answer.step(); }
    if (state == State::failed) {
        use(answer.status());
        return;
    }
    VEL_ASSERT(state == State::done);
    gnmi::GetResponse response;
    VEL_ASSERT(response.ParseFromString(answer.takeMessage()));
    VEL_ASSERT(static_cast<std::size_t>(response.notification_size()) == plan.parts.size());
}

/// Of Subscribe or Get, as the client would have them parsed.
template <class Request, class Plan>
void receive(const std::uint8_t* data, std::size_t size, const Plan& plan) {
    Request request;
    if (!request.ParseFromArray(data, static_cast<int>(size))) { return; }
    std::visit([](const auto& result) { use(result); }, plan(request));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    [[maybe_unused]] static const bool quiet = [] {
        google::protobuf::SetLogHandler(nullptr);
        return true;
    }();
    static const Gale::Limits limits;
    receive<gnmi::SubscribeRequest>(data, size, [](const gnmi::SubscribeRequest& request) {
        return Gale::planSubscribe(request, channels(), limits);
    });
    receive<gnmi::GetRequest>(data, size, [](const gnmi::GetRequest& request) {
        return Gale::planGet(request, channels(), limits);
    });
    return 0;
}
