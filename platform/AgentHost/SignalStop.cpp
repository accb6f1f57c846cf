#include "platform/AgentHost/SignalStop.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("AgentHost");

namespace AgentHost {
namespace {

int openSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    VEL_ASSERT(::pthread_sigmask(SIG_BLOCK, &set, nullptr) == 0);
    return ::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

SignalStop::SignalStop(Vel::Ref<Kiln::TaskScheduler> scheduler)
    : scheduler_{std::move(scheduler)}, fd_{openSignals()} {
    VEL_ASSERT(fd_ >= 0);
    watch_ = scheduler_->watchReadable(fd_, [this] { taken(); });
}

SignalStop::~SignalStop() {
    watch_ = Kiln::FdWatch{};
    ::close(fd_);
}

void SignalStop::taken() {
    signalfd_siginfo info{};
    if (::read(fd_, &info, sizeof info) != sizeof info) { return; }
    TRACE9("signal {}", info.ssi_signo);
    scheduler_->stop();
}

}  // namespace AgentHost
