#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/Gale/Wire/Counters.h"
#include "platform/Gale/Wire/Environment.h"
#include "platform/Gale/Wire/FrameCounter.h"
#include "platform/Gale/Wire/Guard.h"
#include "platform/Gale/Wire/Keepalive.h"
#include "platform/Gale/Wire/Pipe.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

struct nghttp2_session;

namespace Gale::Wire {

class SessionCallbacks;
class StreamCall;

/// One HTTP/2 connection: feeds nghttp2, owns the calls, and holds at most Options::outputBuffer
/// bytes that the socket has not taken. Input is answered into that buffer at once (so that ACKs do
/// not pile up inside nghttp2), but written only by flush(), once at the end of a loop turn.
/// I/O thread.
class Session final {
public:
    Session(const Environment& environment, std::unique_ptr<Pipe> pipe, std::string peer);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // From the loop.
    void readable();
    void writable();
    /// Writes what is ready. True: this session used up its share of the turn, flush again in the
    /// next one.
    [[nodiscard]] bool flush();
    /// About once a second: keepalive, stalls, slow openings, the second step of drain().
    void tick(Kiln::TimePoint now);
    /// Tells the client to take new calls elsewhere; open ones go on.
    void drain();
    /// Ends open calls with Unavailable, then the connection.
    void close();
    bool dead() const { return dead_; }
    /// Tells the handlers of a dead connection; done by the destructor at the latest.
    void abandon();
    /// The socket is full: poll for room.
    bool blocked() const { return blocked_; }
    /// Since when the socket has taken nothing of the output; nothing when there is none.
    std::optional<Kiln::TimePoint> unwrittenSince() const {
        return outputLeft() > 0 ? std::optional{lastWrite_} : std::nullopt;
    }

    std::size_t openCalls() const { return calls_.size(); }

    // From the calls.
    const Environment& environment() const { return environment_; }
    nghttp2_session* http2() const { return http2_; }
    Counters& counters() { return counters_; }
    const Counters& counters() const { return counters_; }
    const std::string& peer() const { return peer_; }
    /// Something may have to be written at the end of this turn.
    void touch();

private:
    friend class SessionCallbacks;  // nghttp2's C callbacks, one function each

    enum class Drain : std::uint8_t { No, Noticed, Done };

    void receive(std::span<const std::byte> bytes);
    void fillOutput();
    bool writeOutput();
    void settled();
    void cancelCalls(const Status& why);
    void charge(Offence offence, double cost = 1);
    void shutOut(std::string_view text);
    void finishDrain();
    void closing(Kiln::TimePoint now);
    void tickCalls(Kiln::TimePoint now);
    bool timedOut(Kiln::TimePoint now);
    std::size_t bufferedRequests() const;
    std::size_t outputLeft() const { return output_.size() - outputAt_; }

    void onRequestData(StreamCall& call, std::span<const std::byte> bytes);
    void onPing();
    void onSettings();
    void onWindow(std::int32_t stream);
    void onResetSent(std::uint32_t code);
    void onProgress();
    void onClosed(std::int32_t stream, std::uint32_t code);

    const Environment& environment_;
    const std::unique_ptr<Pipe> pipe_;
    const std::string peer_;
    nghttp2_session* http2_ = nullptr;
    Counters counters_;
    Guard guard_;
    Keepalive keepalive_;
    FrameCounter frames_;
    std::unordered_map<std::int32_t, std::unique_ptr<StreamCall>> calls_;

    std::vector<std::byte> output_;
    std::size_t outputAt_ = 0;
    Kiln::TimePoint born_;
    Kiln::TimePoint lastWrite_;               // or when output began to wait
    Kiln::TimePoint noticed_;                 // first GOAWAY of drain()
    std::optional<Kiln::TimePoint> closeBy_;  // nothing but the last output matters
    Drain drain_ = Drain::No;
    bool settingsSeen_ = false;
    bool touched_ = false;
    bool blocked_ = false;
    bool lingering_ = false;  // all written; reads only so that the close does not reset it
    bool dead_ = false;
};

}  // namespace Gale::Wire
