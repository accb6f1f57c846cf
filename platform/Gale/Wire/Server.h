#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Gale/Wire/Counters.h"
#include "platform/Gale/Wire/Options.h"
#include "platform/Gale/Wire/Router.h"
#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

struct ConnectionStatus {
    std::string peer;  ///< numeric address and port
    std::size_t openCalls = 0;
    Counters counters;
};

struct ServerStatus {
    Counters total;  ///< of all connections, closed ones too
    std::uint64_t accepted = 0;
    std::uint64_t turnedAway = 0;  ///< over a connection limit, or no descriptor left
    std::vector<ConnectionStatus> connections;
};

/// A gRPC server over HTTP/2 in clear text on one event loop.
///
/// Life: construct, add to router(), listen(), then either start() for a thread of its own, or
/// runOnce() again and again on the caller's thread (test mode: with a VirtualClock time stands
/// still between turns). A turn reads what came, runs handlers, expires deadlines, and then writes
/// once for each touched connection; nothing is written in between, so a burst of resumed calls or
/// messages costs one system call.
///
/// The clock and everything the handlers use must outlive the server. The destructor ends open
/// calls (Unavailable) without grace.
class Server final {
public:
    Server(const Options& options, const Kiln::Clock& clock);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();

    /// Before start() or the first runOnce() only.
    Router& router();

    /// Binds and listens. Answers an error text that names address and port (occupied port, bad
    /// address, no permission), after which listen() may be tried again; nothing when all is well.
    [[nodiscard]] std::optional<std::string> listen();
    /// The bound port; 0 before listen(). Any thread.
    std::uint16_t port() const;

    /// Runs the loop on a new thread. The clock must be a running one.
    void start();
    /// beginStop(), then waits until the loop has ended. Not on the I/O thread.
    void stop(Kiln::Duration grace);

    /// Stops accepting and says so to each client (GOAWAY twice); open calls go on. After `grace`
    /// those left end with Unavailable, and then the connections. Any thread; does not wait.
    void beginStop(Kiln::Duration grace);
    /// All connections are gone after beginStop(). Any thread.
    bool stopped() const;

    /// Test mode: one turn without waiting.
    void runOnce();

    /// Runs `fn` on the I/O thread in its next turn, in order of posting; in test mode inside the
    /// next runOnce(). Any thread. What is still waiting when the server ends is dropped unrun.
    void post(std::function<void()> fn);

    /// I/O thread only: another thread posts a function that calls it.
    ServerStatus status() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Gale::Wire
