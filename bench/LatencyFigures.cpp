#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fcntl.h>
#include <array>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "bench/RawClient.h"
#include "bench/RawStream.h"

namespace Bench {
namespace {

using Clock = std::chrono::steady_clock;

double microsecondsSince(Clock::time_point begun) {
    return std::chrono::duration<double, std::micro>(Clock::now() - begun).count();
}

/// What no agent can do without: a thread that sleeps on a bell in the file system wakes one that
/// sleeps on an eventfd, which wakes who sleeps on a socket.
class WakeUps {
public:
    explicit WakeUps(const std::filesystem::path& directory)
        : bell_{::open((directory / "bell").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)},
          inotify_{::inotify_init1(IN_CLOEXEC)},
          event_{::eventfd(0, EFD_CLOEXEC)} {
        ::inotify_add_watch(inotify_, (directory / "bell").c_str(), IN_MODIFY);
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets_.data()) != 0) {
            throw std::runtime_error{"no socket pair"};
        }
        scheduler_ = std::jthread{[this] { schedulerThread(); }};
        io_ = std::jthread{[this] { ioThread(); }};
    }
    WakeUps(const WakeUps&) = delete;
    WakeUps& operator=(const WakeUps&) = delete;
    ~WakeUps() {
        done_ = true;
        // Either may have seen that already, and may answer no more.
        ring();
        ::eventfd_write(event_, 1);
        scheduler_.join();
        io_.join();
        for (const int fd : {bell_, inotify_, event_, sockets_[0], sockets_[1]}) { ::close(fd); }
    }
    double chain() {
        const auto begun = Clock::now();
        ring();
        char byte = 0;
        if (::read(sockets_[0], &byte, 1) != 1) { throw std::runtime_error{"no wake-up"}; }
        return microsecondsSince(begun);
    }

private:
    void ring() const { (void)!::pwrite(bell_, "!", 1, 0); }
    void schedulerThread() {
        alignas(inotify_event) std::array<char, 4096> buffer;
        do {
            if (::read(inotify_, buffer.data(), buffer.size()) <= 0) { return; }
            ::eventfd_write(event_, 1);
        } while (!done_);
    }
    void ioThread() {
        eventfd_t value = 0;
        do {
            ::eventfd_read(event_, &value);
            if (::write(sockets_[1], "!", 1) != 1) { return; }
        } while (!done_);
    }
    int bell_;
    int inotify_;
    int event_;
    std::array<int, 2> sockets_{};
    std::atomic<bool> done_{false};
    std::jthread scheduler_;
    std::jthread io_;
};

Json distribution(std::vector<double>& values) {
    return {{"p50_us", median(values)}, {"p99_us", percentile99(values)}};
}

}  // namespace

Json latencyFigures(const Setting& setting, unsigned changes) {
    AgentProcess agent{setting.programs, setting.root};
    const std::uint16_t port = agent.waitForPort();
    subscribeUntil(port, entriesOf(setting.nextHops));
    RawClient client{port, kSubscribe, subscribeRequest(Mode::stream)};
    while (client.syncs() == 0 && client.read()) {}
    NextHopChanger changer{setting.root, setting.nextHops};
    WakeUps wakeUps{setting.root};
    std::vector<double> change;
    std::vector<double> commits;
    std::vector<double> bare;
    for (unsigned i = 0; i < changes; ++i) {
        // Unlike any period of the system's own.
        std::this_thread::sleep_for(std::chrono::microseconds{1500 + (i * 797) % 1000});
        changer.prepare(1 + (i * 7919ULL) % setting.nextHops);
        const std::uint64_t before = client.messages();
        const auto begun = Clock::now();
        changer.commit();
        commits.push_back(microsecondsSince(begun));
        while (client.messages() == before && client.read(std::chrono::seconds{10})) {}
        if (client.messages() == before) { throw std::runtime_error{"a change did not come"}; }
        change.push_back(microsecondsSince(begun));
        std::this_thread::sleep_for(std::chrono::microseconds{1500 + (i * 331) % 1000});
        bare.push_back(wakeUps.chain());
    }
    return {{"changes", changes},
            {"change", distribution(change)},
            {"commit_alone", distribution(commits)},
            {"wake_ups", distribution(bare)}};
}

}  // namespace Bench
