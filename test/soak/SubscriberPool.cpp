#include "test/soak/SubscriberPool.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace Soak {

SubscriberPool::SubscriberPool()
    : epoll_{::epoll_create1(EPOLL_CLOEXEC)}, thread_{[this] { serve(); }} {}

SubscriberPool::~SubscriberPool() {
    over_ = true;
    thread_.join();
    ::close(epoll_);
}

void SubscriberPool::watch(RawSubscriber& subscriber) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = &subscriber;
    ::epoll_ctl(epoll_, EPOLL_CTL_ADD, subscriber.socket(), &event);
}

void SubscriberPool::add(const std::string& name,
                         std::uint16_t port,
                         Pace pace,
                         const std::filesystem::path& recording) {
    auto made = std::make_unique<RawSubscriber>(name, port, pace);
    if (!recording.empty()) {
        if (const std::string error = made->recordTo(recording); !error.empty()) {
            throw std::runtime_error{error};
        }
    }
    const std::lock_guard lock{mutex_};
    if (made->reads()) { watch(*made); }
    all_.push_back(std::move(made));
}

void SubscriberPool::forEach(const std::function<void(RawSubscriber&)>& call) {
    const std::lock_guard lock{mutex_};
    for (const auto& subscriber : all_) { call(*subscriber); }
}

void SubscriberPool::hurry() {
    forEach([this](RawSubscriber& subscriber) {
        subscriber.hurry();
        if (!subscriber.reads() && !subscriber.ended()) { watch(subscriber); }
    });
}

std::vector<SubscriberState> SubscriberPool::states() {
    std::vector<SubscriberState> result;
    forEach([&](RawSubscriber& subscriber) { result.push_back(subscriber.state()); });
    return result;
}

void SubscriberPool::serve() {
    std::array<epoll_event, 64> events{};
    while (!over_) {
        constexpr int kTickMs = 20;
        const int count = ::epoll_wait(epoll_, events.data(), events.size(), kTickMs);
        const std::lock_guard lock{mutex_};
        for (int i = 0; i < count; ++i) {
            auto& subscriber =
                *static_cast<RawSubscriber*>(events.at(static_cast<std::size_t>(i)).data.ptr);
            subscriber.read();
            if (subscriber.ended()) {
                ::epoll_ctl(epoll_, EPOLL_CTL_DEL, subscriber.socket(), nullptr);
            }
        }
        const auto now = RawSubscriber::Clock::now();
        for (const auto& subscriber : all_) { subscriber->tick(now); }
    }
}

}  // namespace Soak
