#pragma once

#include "platform/Gale/ServiceStatus.h"
#include "platform/Kiln/TaskScheduler.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace Gale {

/// Requests for the status, which wait for the I/O thread's part of it. That is asked once for all
/// who wait; who has waited for ServiceStatus::kPatience is answered without. So a thread that does
/// not answer holds up nobody, and has one question to answer when it comes round.
///
///   input                 handler         output
///   a request             add             the I/O thread asked, unless it has a question already
///   its answer            handleStreams   all who wait are answered
///   patience over         handleTimeout   who has waited that long is answered without it
///   the server stops      answerAll       all are answered without it
///
/// Scheduler's thread.
class StatusRequests final {
public:
    /// Answers from any thread, or never.
    using Told = std::function<void(StreamsStatus)>;
    using Ask = std::function<void(Told)>;
    using Finish = std::function<ServiceStatus(std::optional<StreamsStatus>)>;

    /// `ask` asks the I/O thread; `finish` makes the whole status of its answer.
    StatusRequests(const Vel::Ref<Kiln::TaskScheduler>& scheduler, Ask ask, Finish finish);
    StatusRequests(const StatusRequests&) = delete;
    StatusRequests& operator=(const StatusRequests&) = delete;

    void add(StatusAnswer answer);
    void answerAll(const std::optional<StreamsStatus>& streams);

private:
    struct Waiting {
        Kiln::TimePoint until;
        StatusAnswer answer;
    };
    bool handleTimeout();

    const Vel::Ref<Kiln::TaskScheduler> scheduler_;
    const Ask ask_;
    const Finish finish_;
    std::deque<Waiting> waiting_;
    bool asked_ = false;
    Kiln::Task timeout_;
    std::shared_ptr<StatusRequests*> self_;  // what a late answer finds empty
};

}  // namespace Gale
