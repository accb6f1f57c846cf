#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct uv_loop_s;

namespace Gale::Wire {

class Poll;

/// A client that connected: its socket (non-blocking; the receiver owns it) and its numeric name.
struct Peer {
    int socket;
    std::string address;
    std::uint16_t port;

    /// "192.0.2.1:4711" or "[2001:db8::1]:4711".
    std::string name() const;
};

/// One listening TCP socket. Accepts a bounded number of clients a turn; when descriptors run out
/// it turns one client away with a spare descriptor and pauses, instead of spinning. I/O thread,
/// but open() may run before that exists.
class Listener {
public:
    using Accepted = std::function<void(const Peer&)>;

    Listener(uv_loop_s* loop, Accepted accepted);
    ~Listener();

    /// Answers an error text naming address and port, or nothing.
    [[nodiscard]] std::optional<std::string> open(const std::string& address, std::uint16_t port);
    std::uint16_t port() const { return port_; }
    void close();
    /// After a pause; harmless otherwise. Asked about once a second.
    void resume();
    /// Clients turned away for want of descriptors.
    std::uint64_t turnedAway() const { return turnedAway_; }

private:
    std::optional<std::string> bindAndListen(const std::string& address, std::uint16_t port);
    void acceptSome();
    bool acceptOne();
    void outOfDescriptors();

    uv_loop_s* loop_;
    Accepted accepted_;
    int socket_ = -1;
    int spare_ = -1;
    std::uint16_t port_ = 0;
    std::uint64_t turnedAway_ = 0;
    bool paused_ = false;
    std::unique_ptr<Poll> poll_;
};

}  // namespace Gale::Wire
