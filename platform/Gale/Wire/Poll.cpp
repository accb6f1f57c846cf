#include "platform/Gale/Wire/Poll.h"

#include <uv.h>

#include <memory>
#include <utility>

namespace Gale::Wire {
namespace {

void onEvent(uv_poll_t* handle, int status, int events) {
    const auto& ready = *static_cast<Poll::Ready*>(handle->data);
    ready(status < 0 || (events & UV_READABLE) != 0, (events & UV_WRITABLE) != 0);
}

void onClosed(uv_handle_t* handle) {
    const std::unique_ptr<uv_poll_t> freed{reinterpret_cast<uv_poll_t*>(handle)};
}

}  // namespace

Poll::Poll(uv_loop_s* loop, int descriptor, Ready ready) : ready_{std::move(ready)} {
    auto handle = std::make_unique<uv_poll_t>();
    uv_poll_init(loop, handle.get(), descriptor);
    handle->data = &ready_;
    handle_ = handle.release();
}

Poll::~Poll() {
    uv_close(reinterpret_cast<uv_handle_t*>(handle_), onClosed);
}

void Poll::want(bool readable, bool writable) {
    const int events = (readable ? UV_READABLE : 0) | (writable ? UV_WRITABLE : 0);
    if (events == wanted_) { return; }
    wanted_ = events;
    if (events == 0) {
        uv_poll_stop(handle_);
    } else {
        uv_poll_start(handle_, events, onEvent);
    }
}

}  // namespace Gale::Wire
