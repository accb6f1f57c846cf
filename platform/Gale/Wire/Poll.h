#pragma once

#include <functional>

struct uv_loop_s;
struct uv_poll_s;

namespace Gale::Wire {

/// Tells when a descriptor is ready. I/O thread; destroy before the descriptor is closed.
class Poll {
public:
    using Ready = std::function<void(bool readable, bool writable)>;

    /// Errors of the descriptor are reported as readable, since reading tells what they are.
    Poll(uv_loop_s* loop, int descriptor, Ready ready);
    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;
    ~Poll();

    /// Level-triggered; neither: silent. Cheap when nothing changes.
    void want(bool readable, bool writable);

private:
    uv_poll_s* handle_;  // freed by its close callback
    Ready ready_;
    int wanted_ = 0;
};

}  // namespace Gale::Wire
