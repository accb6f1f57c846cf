#include "platform/Gale/Channel.h"
#include "platform/Gale/LeafFilter.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/SubscribePlan.h"
#include "platform/Gale/test/TestView.h"
#include "platform/Vel/Assert.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <google/protobuf/stubs/logging.h>
#include <proto/gnmi.pb.h>

// Whatever a client sends as its first message ends in a plan that works, or in a status with a text.

namespace {

const std::string& sample() {
    static const std::string bytes = [] {
        std::string made;
        Gale::NotificationWriter writer{made};
        const std::vector<std::string_view> keys{"main", "1"};
        writer.stamp(1);
        writer.prefix(Gale::PathTemplate{"zoo[name]/beasts/beast[index]", "openconfig"}, keys);
        writer.leaf(Gale::PathTemplate{"state/colour"}, {}, std::string_view{"red"});
        writer.atomic();
        return made;
    }();
    return bytes;
}

void use(const Gale::SubscribePlan& plan) {
    for (std::size_t lane = 0; lane < Gale::kLanes; ++lane) {
        if (lane < 4) { plan.filter->of(Gale::laneAt(lane), {0, 0, 1}); }
    }
    std::string cut;
    Gale::LeafFilter filter{plan.filter->patterns()};
    if (filter.cut(sample(), cut)) {
        gnmi::Notification notification;
        VEL_ASSERT(notification.ParseFromString(cut));
        VEL_ASSERT(notification.update_size() == 1 && notification.atomic());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto* const channels = [] {
        google::protobuf::SetLogHandler(nullptr);
        auto* const made = new std::vector<std::unique_ptr<Gale::Channel>>;
        made->push_back(std::make_unique<Gale::Channel>(
            "openconfig", std::make_unique<Gale::TestView>(), [] {}));
        return made;
    }();
    static const Gale::Limits limits;
    gnmi::SubscribeRequest request;
    if (!request.ParseFromArray(data, static_cast<int>(size)) || !request.has_subscribe()) {
        return 0;
    }
    const auto plan = Gale::planSubscribe(request, *channels, limits);
    if (const auto* const status = std::get_if<Gale::Wire::Status>(&plan)) {
        VEL_ASSERT(!status->ok() && !status->message.empty());
    } else {
        use(std::get<Gale::SubscribePlan>(plan));
    }
    return 0;
}
