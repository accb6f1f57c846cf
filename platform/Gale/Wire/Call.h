#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Gale/Wire/Metadata.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

// What a service sees of one RPC. A service gives a CallHandler for each call; the layer gives the
// handler a Call. Replies are pulled: the layer asks the handler's MessageSource for bytes only
// when the client's flow-control windows and the connection's output buffer have room, so nothing
// is ever queued between a source and the socket.
//
// Threads: everything in this file runs on the server's I/O thread (in test mode: on the thread
// that calls Server::runOnce) and must not block. Another thread reaches a call only through
// Server::post, and must expect that the call is gone when the posted function runs.
//
// Lifetime, in order: factory(Call&) makes the handler; onMessage and onHalfClose; perhaps
// onCancelled; destruction of the handler. The Call outlives its handler by nothing: keep the
// reference as a member of the handler, never beyond.

/// Bytes before each message on the wire: a flag, then the length as 32 bits, big-endian.
inline constexpr std::size_t kPrefixBytes = 5;

/// What MessageSource::fill answers.
struct Fill {
    enum class State {
        More,      ///< there is more now: ask again as soon as there is room
        Idle,      ///< nothing now: do not ask again before Call::resume()
        Finished,  ///< the reply ends with `status` after these bytes; fill is not called again
    };
    std::size_t bytes =
        0;  ///< written at the front of the span: whole messages with their prefixes
    State state = State::Idle;
    std::size_t need =
        0;               ///< with More: size of the next message with its prefix, if it did not fit
    Status status = {};  ///< with Finished

    static Fill more(std::size_t bytes, std::size_t need = 0) {
        return {bytes, State::More, need, {}};
    }
    static Fill idle(std::size_t bytes) { return {bytes, State::Idle, 0, {}}; }
    static Fill finished(std::size_t bytes, Status status) {
        return {bytes, State::Finished, 0, std::move(status)};
    }
};

/// Gives the reply messages of one call, in order, when asked.
class MessageSource {
public:
    MessageSource() = default;
    MessageSource(const MessageSource&) = delete;
    MessageSource& operator=(const MessageSource&) = delete;
    virtual ~MessageSource() = default;

    /// Writes as many whole messages (putPrefix, then payload) as fit into `out` and says how it
    /// goes on. A message that does not fit is not begun: answer Fill::more(bytes so far, its size
    /// with prefix), and fill is called at once with a span of exactly that size, whose surplus the
    /// layer carries into the following frames. So any message size works, frames are always full,
    /// and at most one message is ahead of the client's window. `out` is never empty and may be
    /// smaller than a prefix. Answering More with neither bytes nor need ends the call with
    /// INTERNAL.
    virtual Fill fill(std::span<std::byte> out) = 0;
};

/// Writes the 5-byte prefix of an uncompressed message to `out`, which has at least that room.
void putPrefix(std::byte* out, std::size_t messageBytes);

/// The layer's side of one RPC.
class Call {
public:
    Call() = default;
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    virtual ~Call() = default;

    /// "/service/method".
    virtual std::string_view path() const = 0;
    /// The client's metadata without HTTP's and gRPC's own fields.
    virtual const Metadata& metadata() const = 0;
    /// When the client stops waiting, on the server's clock. The layer itself ends the call then
    /// (onCancelled with DeadlineExceeded).
    virtual std::optional<Kiln::TimePoint> deadline() const = 0;
    /// Numeric address and port of the client.
    virtual std::string_view peer() const = 0;
    /// Since when the client has taken nothing of what there is for it, because its windows are
    /// closed or its socket is full; nothing when all there was has been taken.
    virtual std::optional<Kiln::TimePoint> blockedSince() const = 0;

    /// Sent with the response headers; without effect after start(), reply() or finish().
    virtual void addInitialMetadata(std::string name, std::string value) = 0;
    /// Sent with the status; without effect once the status is on its way.
    virtual void addTrailer(std::string name, std::string value) = 0;

    /// Accepts the call: response headers go out at once, then `source` is asked for messages.
    /// `source` must live as long as the handler (usually it is the handler, or a member of it).
    /// Once per call.
    virtual void start(MessageSource& source) = 0;
    /// An idle source has data again. Cheap and harmless when it was not idle.
    virtual void resume() = 0;
    /// As resume(), at that time on the server's clock; in place of an earlier time that has not
    /// come. May be used inside fill().
    virtual void resumeAt(Kiln::TimePoint at) = 0;
    /// A unary answer: this one message, then OK. Instead of start(). The bytes are copied.
    virtual void reply(std::span<const std::byte> message) = 0;
    /// Ends the call. Messages already taken from the source go out whole before the status; the
    /// source is not asked again. Before start() only the status is sent. Later calls of start,
    /// reply, resume and finish do nothing. Not for use inside fill(): answer Fill::finished there.
    virtual void finish(Status status) = 0;
};

/// A service's side of one RPC. Whatever a function of it throws ends this call with UNKNOWN.
class CallHandler {
public:
    CallHandler() = default;
    CallHandler(const CallHandler&) = delete;
    CallHandler& operator=(const CallHandler&) = delete;
    /// Frees what the call holds; the Call must not be used any more.
    virtual ~CallHandler() = default;

    /// One whole request message; the bytes are valid during the call only. Unary and
    /// server-streaming handlers get exactly one. Not called after finish() or reply().
    virtual void onMessage(std::span<const std::byte> message) = 0;
    /// The client sends no more messages; the reply may go on.
    virtual void onHalfClose() = 0;
    /// The call ended otherwise than by its handler: reset by the client or connection lost
    /// (Cancelled), deadline over (DeadlineExceeded), server stopping or client not reading for the
    /// stall time (Unavailable), bad request bytes. Normal business, no error to report. Called at
    /// most once; the handler is destroyed right after it.
    virtual void onCancelled(const Status& why) = 0;
};

/// Makes the handler of one call. Unary and server-streaming: called when the request is complete,
/// followed by onMessage and onHalfClose. Bidi: called when the request head is in; must be cheap,
/// since a client can open and reset calls quickly (create producers on the first message). May
/// finish() the call at once. Answering null ends the call with INTERNAL.
using HandlerFactory = std::function<std::unique_ptr<CallHandler>(Call&)>;

}  // namespace Gale::Wire
