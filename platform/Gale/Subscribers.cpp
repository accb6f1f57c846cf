#include "platform/Gale/Subscribers.h"

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

void Subscribers::resumeLater(ReadingCall& call) {
    post_([this, later = &call] {
        // It may be gone; another at its address takes it for news, which does no harm.
        if (std::find(calls_.begin(), calls_.end(), later) != calls_.end()) { later->resume(); }
    });
}

void Subscribers::resumeAll() {
    for (ReadingCall* const call : calls_) { call->resume(); }
}

void Subscribers::add(ReadingCall& call) {
    calls_.push_back(&call);
}

void Subscribers::remove(ReadingCall& call) {
    std::erase(calls_, &call);
}

std::vector<SubscriberStatus> Subscribers::status() const {
    std::vector<SubscriberStatus> all;
    for (const ReadingCall* const call : calls_) { all.push_back(call->status()); }
    return all;
}

}  // namespace Gale
