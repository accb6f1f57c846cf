#include "platform/Gale/StatusRequests.h"

#include "platform/Blink/Trace.h"

#include <utility>

BLINK_TRACE_HANDLE("GaleStatus");

namespace Gale {

namespace {
constexpr Kiln::TaskPriority kPriority = 5;
}  // namespace

StatusRequests::StatusRequests(const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                               Ask ask,
                               Finish finish)
    : scheduler_(scheduler),
      ask_(std::move(ask)),
      finish_(std::move(finish)),
      timeout_(scheduler, "GaleStatusTimeout", kPriority, [this] { return handleTimeout(); }),
      self_(std::make_shared<StatusRequests*>(this)) {}

void StatusRequests::add(StatusAnswer answer) {
    waiting_.push_back({scheduler_->clock().now() + ServiceStatus::kPatience, std::move(answer)});
    if (!timeout_.scheduled()) { timeout_.scheduleAfter(ServiceStatus::kPatience); }
    if (std::exchange(asked_, true)) { return; }
    // The I/O thread must not count references to the scheduler, which outlives it.
    ask_([weak = std::weak_ptr{self_}, &scheduler = *scheduler_](StreamsStatus streams) {
        scheduler.post([weak, streams = std::move(streams)] {
            const auto self = weak.lock();
            if (!self) { return; }
            (*self)->asked_ = false;
            (*self)->answerAll(streams);
        });
    });
}

void StatusRequests::answerAll(const std::optional<StreamsStatus>& streams) {
    timeout_.unschedule();
    if (waiting_.empty()) { return; }
    const ServiceStatus status = finish_(streams);
    for (const Waiting& each : std::exchange(waiting_, {})) { each.answer(status); }
}

bool StatusRequests::handleTimeout() {
    const Kiln::TimePoint now = scheduler_->clock().now();
    while (!waiting_.empty() && waiting_.front().until <= now) {
        TRACE5("the I/O thread does not answer");
        const StatusAnswer answer = std::move(waiting_.front().answer);
        waiting_.pop_front();
        answer(finish_(std::nullopt));
    }
    if (!waiting_.empty()) { timeout_.scheduleAfter(waiting_.front().until - now); }
    return false;
}

}  // namespace Gale
