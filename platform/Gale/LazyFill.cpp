#include "platform/Gale/LazyFill.h"

#include "platform/Blink/Trace.h"
#include "platform/Gale/Channel.h"

#include <utility>

BLINK_TRACE_HANDLE("GaleLazyFill");

namespace Gale {

std::shared_ptr<LazyFill> LazyFill::make(Channel& channel,
                                         Options options,
                                         const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                                         const Vel::Ref<Kiln::TaskGroup>& group) {
    auto made = std::make_shared<LazyFill>(channel, std::move(options), scheduler, group);
    // What is posted may come after the end of this object. The I/O thread must not count
    // references to the scheduler, which outlives it.
    channel.demand.lazyIs(
        [weak = std::weak_ptr{made}, &scheduler = *scheduler](std::uint64_t round, bool wanted) {
            scheduler.post([weak, round, wanted] {
                const auto self = weak.lock();
                if (!self) { return; }
                if (wanted) {
                    self->handleWanted(round);
                } else {
                    self->handleUnwanted();
                }
            });
        });
    return made;
}

LazyFill::LazyFill(Channel& channel,
                   Options options,
                   const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                   const Vel::Ref<Kiln::TaskGroup>& group)
    : channel_(channel),
      options_(std::move(options)),
      scheduler_(scheduler),
      lingerTask_(scheduler, "GaleLingerTask", group, [this] { return handleLinger(); }),
      eraseTask_(scheduler, "GaleEraseTask", group, [this] { return eraseSome(); }) {}

LazyFill::~LazyFill() = default;

void LazyFill::handleWanted(std::uint64_t round) {
    TRACE9("{}: round {}, {}", channel_.origin, round, text());
    wanted_ = round;
    lingerTask_.unschedule();
    if (state_ == State::empty) { fill(); }
    if (state_ == State::filled) { tell(); }
}

void LazyFill::handleUnwanted() {
    TRACE9("{}: {}", channel_.origin, text());
    wanted_.reset();
    if (state_ == State::filling || state_ == State::filled) {
        lingerTask_.scheduleAfter(options_.linger);
    }
}

void LazyFill::fill() {
    state_ = State::filling;
    channel_.provider = options_.makeProvider([this] { handleFilled(); });
}

void LazyFill::handleFilled() {
    TRACE9("{}", channel_.origin);
    state_ = State::filled;
    if (wanted_) { tell(); }
}

void LazyFill::tell() {
    options_.toIoThread([&demand = channel_.demand, round = *wanted_] { demand.filledIs(round); });
}

bool LazyFill::handleLinger() {
    TRACE9("{}", channel_.origin);
    state_ = State::erasing;
    channel_.provider.reset();
    eraseTask_.schedule();
    return false;
}

bool LazyFill::eraseSome() {
    {
        // No cursor is there: nothing is kept for one, and each entry is a short hold of its own.
        const Journal::Batch batch{channel_.journal};
        for (std::size_t i = kLanes; i > 0; --i) {
            const Lane lane = laneAt(i - 1);
            while (const auto key = channel_.journal.firstKey(lane)) {
                channel_.journal.remove(lane, *key, {});
                if (scheduler_->mustYield()) { return true; }
            }
        }
    }
    state_ = State::empty;
    if (wanted_) { fill(); }
    return false;
}

const char* LazyFill::text() const {
    switch (state_) {
        case State::empty:
            return "idle";
        case State::filling:
            return "filling";
        case State::filled:
            return wanted_ ? "filled" : "lingering";
        case State::erasing:
            return "being freed";
    }
    return "";
}

}  // namespace Gale
