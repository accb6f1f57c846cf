#include "platform/Gale/Subscribers.h"

#include "platform/Gale/SubscribeCall.h"

#include <algorithm>

namespace Gale {

void Subscribers::wake() {
    if (wakePosted_.exchange(true)) { return; }
    post_([this] {
        // First, so that what comes from here on is posted again.
        wakePosted_ = false;
        resumeAll();
    });
}

void Subscribers::resumeAll() {
    for (SubscribeCall* const call : calls_) { call->resume(); }
}

void Subscribers::add(SubscribeCall& call) {
    calls_.push_back(&call);
}

void Subscribers::remove(SubscribeCall& call) {
    std::erase(calls_, &call);
}

std::vector<SubscriberStatus> Subscribers::status() const {
    std::vector<SubscriberStatus> all;
    for (const SubscribeCall* const call : calls_) { all.push_back(call->status()); }
    return all;
}

}  // namespace Gale
