#include "platform/Gale/Wire/SessionCallbacks.h"

#include <nghttp2/nghttp2.h>

#include <memory>

#include "platform/Gale/Wire/Options.h"
#include "platform/Gale/Wire/Session.h"
#include "platform/Gale/Wire/StreamCall.h"

namespace Gale::Wire {
namespace {

constexpr std::uint32_t kStreamWindow = 256U << 10U;
// Out of the way: our own budget for resets is tighter, and works on the injected clock.
constexpr std::uint64_t kResetBurst = 1'000'000;
constexpr std::uint64_t kResetsPerSecond = 1'000'000;

StreamCall* callOf(nghttp2_session* http2, std::int32_t stream) {
    return static_cast<StreamCall*>(nghttp2_session_get_stream_user_data(http2, stream));
}

std::string_view text(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

}  // namespace

int SessionCallbacks::onBeginHeaders(nghttp2_session* http2,
                                     const nghttp2_frame* frame,
                                     void* user) {
    if (frame->headers.cat != NGHTTP2_HCAT_REQUEST) { return 0; }
    Session& session = *static_cast<Session*>(user);
    const std::int32_t stream = frame->hd.stream_id;
    auto call = std::make_unique<StreamCall>(session, stream);
    nghttp2_session_set_stream_user_data(http2, stream, call.get());
    session.calls_.emplace(stream, std::move(call));
    return 0;
}

int SessionCallbacks::onHeader(nghttp2_session* http2,
                               const nghttp2_frame* frame,
                               const std::uint8_t* name,
                               std::size_t nameSize,
                               const std::uint8_t* value,
                               std::size_t valueSize,
                               std::uint8_t,
                               void* user) {
    Session& session = *static_cast<Session*>(user);
    StreamCall* call = callOf(http2, frame->hd.stream_id);
    if (call == nullptr || call->header(text(name, nameSize), text(value, valueSize))) { return 0; }
    session.counters_.add(Count::HeaderOverflows);
    session.charge(Offence::HeaderOverflow);
    return NGHTTP2_ERR_TEMPORAL_CALLBACK_FAILURE;
}

int SessionCallbacks::onFrame(nghttp2_session* http2, const nghttp2_frame* frame, void* user) {
    Session& session = *static_cast<Session*>(user);
    const bool acknowledges = (frame->hd.flags & NGHTTP2_FLAG_ACK) != 0;
    switch (frame->hd.type) {
        case NGHTTP2_HEADERS:
        case NGHTTP2_DATA:
            onRequestFrame(session, callOf(http2, frame->hd.stream_id), *frame);
            break;
        case NGHTTP2_RST_STREAM:
            session.counters_.add(Count::ResetsReceived);
            session.charge(Offence::StreamReset);
            break;
        case NGHTTP2_SETTINGS:
            if (!acknowledges) { session.onSettings(); }
            break;
        case NGHTTP2_PING:
            acknowledges ? session.finishDrain() : session.onPing();
            break;
        case NGHTTP2_WINDOW_UPDATE:
            session.onWindow(frame->hd.stream_id);
            break;
        default:
            break;
    }
    return 0;
}

void SessionCallbacks::onRequestFrame(Session& session,
                                      StreamCall* call,
                                      const nghttp2_frame& frame) {
    if (call == nullptr) { return; }
    const bool ends = (frame.hd.flags & NGHTTP2_FLAG_END_STREAM) != 0;
    if (frame.hd.type == NGHTTP2_HEADERS && frame.headers.cat == NGHTTP2_HCAT_REQUEST) {
        call->headDone();
    }
    if (ends) { return call->requestDone(); }
    if (frame.hd.type == NGHTTP2_DATA && frame.hd.length == frame.data.padlen) {
        session.counters_.add(Count::EmptyData);
        if (!call->emptyData()) {
            nghttp2_submit_rst_stream(
                session.http2_, NGHTTP2_FLAG_NONE, frame.hd.stream_id, NGHTTP2_ENHANCE_YOUR_CALM);
        }
    }
}

int SessionCallbacks::onData(nghttp2_session* http2,
                             std::uint8_t,
                             std::int32_t stream,
                             const std::uint8_t* bytes,
                             std::size_t size,
                             void* user) {
    Session& session = *static_cast<Session*>(user);
    if (StreamCall* call = callOf(http2, stream)) {
        session.onRequestData(*call, {reinterpret_cast<const std::byte*>(bytes), size});
    }
    return 0;
}

int SessionCallbacks::onSent(nghttp2_session* http2, const nghttp2_frame* frame, void* user) {
    Session& session = *static_cast<Session*>(user);
    const std::int32_t stream = frame->hd.stream_id;
    switch (frame->hd.type) {
        case NGHTTP2_DATA:
            session.counters_.add(Count::DataFramesSent);
            session.onProgress();
            break;
        case NGHTTP2_HEADERS:
            session.onProgress();
            // The reply ended before the request: tell the client to stop sending, or the stream
            // stays open. Only now: a reset submitted with the trailers would overtake them.
            if ((frame->hd.flags & NGHTTP2_FLAG_END_STREAM) != 0 &&
                nghttp2_session_get_stream_remote_close(http2, stream) == 0) {
                nghttp2_submit_rst_stream(http2, NGHTTP2_FLAG_NONE, stream, NGHTTP2_NO_ERROR);
            }
            break;
        case NGHTTP2_RST_STREAM:
            session.onResetSent(frame->rst_stream.error_code);
            break;
        default:
            break;
    }
    return 0;
}

int SessionCallbacks::onClose(nghttp2_session*,
                              std::int32_t stream,
                              std::uint32_t code,
                              void* user) {
    static_cast<Session*>(user)->onClosed(stream, code);
    return 0;
}

nghttp2_session* SessionCallbacks::make(Session& session) {
    nghttp2_session_callbacks* callbacks = nullptr;
    nghttp2_session_callbacks_new(&callbacks);
    nghttp2_session_callbacks_set_on_begin_headers_callback(callbacks, onBeginHeaders);
    nghttp2_session_callbacks_set_on_header_callback(callbacks, onHeader);
    nghttp2_session_callbacks_set_on_frame_recv_callback(callbacks, onFrame);
    nghttp2_session_callbacks_set_on_data_chunk_recv_callback(callbacks, onData);
    nghttp2_session_callbacks_set_on_frame_send_callback(callbacks, onSent);
    nghttp2_session_callbacks_set_on_stream_close_callback(callbacks, onClose);

    nghttp2_option* option = nullptr;
    nghttp2_option_new(&option);
    nghttp2_option_set_no_closed_streams(option, 1);
    nghttp2_option_set_stream_reset_rate_limit(option, kResetBurst, kResetsPerSecond);

    nghttp2_session* http2 = nullptr;
    nghttp2_session_server_new2(&http2, callbacks, &session, option);
    nghttp2_option_del(option);
    nghttp2_session_callbacks_del(callbacks);

    const Options& options = session.environment().options;
    const nghttp2_settings_entry settings[] = {
        {NGHTTP2_SETTINGS_MAX_CONCURRENT_STREAMS, options.maxConcurrentStreams},
        {NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE, kStreamWindow},
        {NGHTTP2_SETTINGS_MAX_HEADER_LIST_SIZE, static_cast<std::uint32_t>(options.maxHeaderList)},
        {NGHTTP2_SETTINGS_NO_RFC7540_PRIORITIES, 1},
    };
    nghttp2_submit_settings(http2, NGHTTP2_FLAG_NONE, settings, std::size(settings));
    nghttp2_session_set_local_window_size(
        http2, NGHTTP2_FLAG_NONE, 0, static_cast<std::int32_t>(4 * kStreamWindow));
    return http2;
}

}  // namespace Gale::Wire
