#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "test/checker/Recording.h"
#include "test/soak/StreamDigest.h"

struct nghttp2_hd_inflater;

namespace Soak {

enum class Pace : std::uint8_t {
    fast,           ///< takes all that comes
    neverWindow,    ///< reads nothing after its request; flow control stops the server
    neverSocket,    ///< the same with windows without bound: the socket is what fills up
    eachSecond,     ///< one message a second from the beginning
    liveEachSecond  ///< one message a second some time after the sync, amid a long epoch
};

struct SubscriberState {
    std::string name;
    Pace pace = Pace::fast;
    bool ended = false;
    std::string how;        ///< the call's status once it has ended
    double endedAfter = 0;  ///< seconds since its request
    bool synced = false;
    std::uint64_t messages = 0;
    std::size_t entries = 0;
    std::uint64_t digest = 0;
};

/// One gNMI Subscribe call (STREAM, on change, the whole AFT) on a connection of its own, with just enough of HTTP/2: no
/// library buffers anything that the pace does not allow.
class RawSubscriber {
public:
    using Clock = std::chrono::steady_clock;

    /// Connects and asks. Throws std::runtime_error when nobody listens.
    RawSubscriber(std::string name, std::uint16_t port, Pace pace);
    RawSubscriber(const RawSubscriber&) = delete;
    RawSubscriber& operator=(const RawSubscriber&) = delete;
    ~RawSubscriber();

    int socket() const { return socket_; }
    bool reads() const { return pace_ != Pace::neverWindow && pace_ != Pace::neverSocket; }
    /// Writes what it takes to a file from now on.
    std::string recordTo(const std::filesystem::path& path);
    /// Takes what has come, as the pace allows.
    void read();
    /// For the paced ones, to be called often.
    void tick(Clock::time_point now);
    /// No pause from here on, for whoever reads at all; and the others begin to read.
    void hurry();
    void measuringIs(bool measuring) { digest_.measuringIs(measuring); }
    /// Ends the recording.
    std::string finish();

    bool ended() const { return ended_; }
    SubscriberState state() const;
    const Checker::LagHistogram& lag() const { return digest_.lag(); }

private:
    void send(std::string_view bytes);
    void frame(std::uint8_t type,
               std::uint8_t flags,
               std::uint32_t stream,
               std::string_view payload);
    void windowUpdate(std::uint32_t stream, std::uint32_t bytes);
    void credit(std::size_t bytes);
    void request();
    std::size_t frames(std::string_view bytes);
    void onFrame(std::uint8_t type, std::uint8_t flags, std::string_view payload);
    void onHeaders(std::string_view payload);
    void onData(std::string_view payload);
    std::size_t messages(std::string_view bytes, std::size_t limit);
    void takePending(std::size_t limit);
    bool waits() const;
    void slowDown(Clock::time_point now);
    void endedWith(const std::string& how);

    std::string name_;
    Pace pace_;
    int socket_ = -1;
    Clock::time_point asked_;
    Clock::time_point next_;
    std::vector<char> input_;
    std::size_t filled_ = 0;
    std::string pending_;   // of messages that are not whole, or not taken yet
    std::size_t owed_ = 0;  // credit not given back yet
    std::unique_ptr<nghttp2_hd_inflater, void (*)(nghttp2_hd_inflater*)> headers_;
    std::string status_;
    std::string statusText_;
    enum class Slowing : std::uint8_t { keepsUp, stands, slow } slowing_ = Slowing::keepsUp;
    std::optional<Clock::time_point> slowingUntil_;
    std::uint64_t catchesUp_ = 0;  // so many messages without pause
    bool hurry_ = false;
    bool ended_ = false;
    std::string how_;
    double endedAfter_ = 0;
    StreamDigest digest_;
    Checker::RecordWriter recording_;
};

}  // namespace Soak
