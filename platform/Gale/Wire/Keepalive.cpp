#include "platform/Gale/Wire/Keepalive.h"

namespace Gale::Wire {
namespace {

constexpr unsigned kStrikes = 2;

}  // namespace

void Keepalive::received(Kiln::TimePoint now) {
    lastByte_ = now;
    asked_.reset();
}

Keepalive::Action Keepalive::tick(Kiln::TimePoint now) {
    if (asked_) { return now - *asked_ >= times_.timeout ? Action::Close : Action::None; }
    if (now - lastByte_ < times_.interval) { return Action::None; }
    asked_ = now;
    return Action::SendPing;
}

Keepalive::Verdict Keepalive::ping(Kiln::TimePoint now) {
    if (!lastPing_ || now - *lastPing_ >= times_.permit) {
        lastPing_ = now;
        return Verdict::Fine;
    }
    return ++strikes_ > kStrikes ? Verdict::TooMany : Verdict::Strike;
}

void Keepalive::progress() {
    strikes_ = 0;
    lastPing_.reset();
}

}  // namespace Gale::Wire
