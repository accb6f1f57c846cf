#include "platform/Store/BellWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

namespace Store {

BellWatch::BellWatch(Kiln::TaskScheduler& scheduler,
                     const std::filesystem::path& bell,
                     std::function<void(bool)> rung)
    : inotify_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)}, rung_{std::move(rung)} {
    constexpr std::uint32_t kEvents = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
    if (inotify_ < 0 || ::inotify_add_watch(inotify_, bell.c_str(), kEvents) < 0) {
        error_ = std::generic_category().message(errno);
        return;
    }
    listening_ = true;
    watch_ = scheduler.watchReadable(inotify_, [this] { drain(); });
}

BellWatch::~BellWatch() {
    if (const int left = release(); left >= 0) { ::close(left); }
}

int BellWatch::release() {
    watch_ = Kiln::FdWatch{};
    return std::exchange(inotify_, -1);
}

void BellWatch::drain() {
    alignas(inotify_event) std::array<char, 4096> bytes;
    bool bellChanged = false;
    for (;;) {
        const ssize_t size = ::read(inotify_, bytes.data(), bytes.size());
        if (size <= 0) { break; }
        for (std::size_t at = 0; at + sizeof(inotify_event) <= static_cast<std::size_t>(size);) {
            inotify_event event;
            std::memcpy(&event, &bytes[at], sizeof event);
            bellChanged = bellChanged || (event.mask & ~std::uint32_t{IN_MODIFY}) != 0;
            at += sizeof event + event.len;
        }
    }
    // Another file at the path, or none: what is watched here is no bell any more.
    if (bellChanged) { listening_ = false; }
    rung_(bellChanged);
}

}  // namespace Store
