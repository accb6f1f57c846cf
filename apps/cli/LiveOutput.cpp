#include "apps/cli/LiveOutput.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace Pel::Cli {
namespace {

constexpr std::size_t kPage = 4096;  // so much a pipe takes that takes anything
constexpr short kGone = POLLERR | POLLHUP | POLLNVAL;

}  // namespace

LiveOutput::LiveOutput() : wake_{::eventfd(0, EFD_CLOEXEC)} {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM}) {
        struct sigaction before {};
        ::sigaction(signal, nullptr, &before);
        // What the one who started us has us ignore (a shell's background job) stays ignored.
        if (before.sa_handler != SIG_IGN) { sigaddset(&set, signal); }
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    // Never read: whoever asks, and as often as they ask, hears that the signal came.
    signals_ = ::signalfd(-1, &set, SFD_CLOEXEC);
}

LiveOutput::~LiveOutput() {
    ::close(signals_);
    ::close(wake_);
}

bool LiveOutput::print(std::string_view text) {
    while (!text.empty()) {
        std::array<pollfd, 2> waiting{{{signals_, POLLIN, 0}, {STDOUT_FILENO, POLLOUT, 0}}};
        if (::poll(waiting.data(), waiting.size(), -1) < 0) { continue; }
        if (waiting[1].revents == 0) { return false; }
        const std::string_view page = text.substr(0, kPage);
        if (std::fwrite(page.data(), 1, page.size(), stdout) != page.size()) { return false; }
        if (std::fflush(stdout) != 0) { return false; }
        text.remove_prefix(page.size());
    }
    return !over();
}

LiveOutput::Reason LiveOutput::wait(std::optional<std::chrono::milliseconds> time) const {
    std::array<pollfd, 3> waiting{
        {{signals_, POLLIN, 0}, {STDOUT_FILENO, 0, 0}, {wake_, POLLIN, 0}}};
    ::poll(waiting.data(), waiting.size(), time ? static_cast<int>(time->count()) : -1);
    if (waiting[0].revents != 0 || (waiting[1].revents & kGone) != 0) { return Reason::over; }
    return waiting[2].revents != 0 ? Reason::woken : Reason::time;
}

void LiveOutput::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = ::write(wake_, &one, sizeof one);
}

bool LiveOutput::coloured() {
    const char* const forbidden = std::getenv("NO_COLOR");
    if (forbidden != nullptr && *forbidden != '\0') { return false; }
    const char* const terminal = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && terminal != nullptr &&
           std::string_view{terminal} != "dumb";
}

}  // namespace Pel::Cli
