#pragma once

#include <cstddef>
#include <cstdint>

#include <nghttp2/nghttp2.h>

namespace Gale::Wire {

class Session;
class StreamCall;

/// Connects nghttp2's C callbacks to a Session and its calls.
class SessionCallbacks {
public:
    /// A server session with our limits; its first SETTINGS is queued.
    static nghttp2_session* make(Session& session);

private:
    static int onBeginHeaders(nghttp2_session*, const nghttp2_frame*, void*);
    static int onHeader(nghttp2_session*,
                        const nghttp2_frame*,
                        const std::uint8_t* name,
                        std::size_t nameSize,
                        const std::uint8_t* value,
                        std::size_t valueSize,
                        std::uint8_t flags,
                        void*);
    static int onFrame(nghttp2_session*, const nghttp2_frame*, void*);
    static void onRequestFrame(Session&, StreamCall*, const nghttp2_frame&);
    static int onData(nghttp2_session*,
                      std::uint8_t flags,
                      std::int32_t stream,
                      const std::uint8_t* bytes,
                      std::size_t size,
                      void*);
    static int onSent(nghttp2_session*, const nghttp2_frame*, void*);
    static int onClose(nghttp2_session*, std::int32_t stream, std::uint32_t code, void*);
};

}  // namespace Gale::Wire
