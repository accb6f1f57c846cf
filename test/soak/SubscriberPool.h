#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "test/soak/RawSubscriber.h"

namespace Soak {

/// Subscribers that one thread serves. All calls are for the owner's thread.
class SubscriberPool {
public:
    SubscriberPool();
    SubscriberPool(const SubscriberPool&) = delete;
    SubscriberPool& operator=(const SubscriberPool&) = delete;
    ~SubscriberPool();

    /// @param recording file that it writes what it takes to; none when empty
    void add(const std::string& name,
             std::uint16_t port,
             Pace pace,
             const std::filesystem::path& recording = {});
    void forEach(const std::function<void(RawSubscriber&)>& call);
    /// Ends all pauses; who did not read at all begins to.
    void hurry();
    std::vector<SubscriberState> states();

private:
    void serve();
    void watch(RawSubscriber& subscriber);

    int epoll_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<RawSubscriber>> all_;
    std::atomic<bool> over_{false};
    std::thread thread_;
};

}  // namespace Soak
