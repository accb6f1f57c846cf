#include "platform/Gale/Wire/Server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <uv.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Gale/Wire/Deadlines.h"
#include "platform/Gale/Wire/Environment.h"
#include "platform/Gale/Wire/Listener.h"
#include "platform/Gale/Wire/PlainPipe.h"
#include "platform/Gale/Wire/Poll.h"
#include "platform/Gale/Wire/Session.h"

BLINK_TRACE_HANDLE("GaleWire");

namespace Gale::Wire {
namespace {

constexpr auto kTick = std::chrono::seconds(1);
constexpr auto kStoppingTick = std::chrono::milliseconds(50);
constexpr int kDeadPeerMilliseconds = 30'000;

/// One accepted client. The poll goes before the pipe that holds its descriptor.
struct Connection {
    std::string address;
    Session session;
    Poll poll;

    Connection(const Environment& environment, uv_loop_t* loop, const Peer& peer)
        : address{peer.address},
          session{environment, std::make_unique<PlainPipe>(peer.socket), peer.name()},
          poll{loop, peer.socket, [this](bool readable, bool writable) {
                   if (readable) { session.readable(); }
                   if (writable) { session.writable(); }
               }} {
        poll.want(true, false);
    }
};

void tune(int socket, const Options& options) {
    const int on = 1;
    const int unsent = static_cast<int>(options.unsentLimit);
    const unsigned dead = kDeadPeerMilliseconds;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &unsent, sizeof unsent);
    ::setsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &dead, sizeof dead);
}

template <class Handle>
uv_handle_t* handleOf(Handle& handle) {
    return reinterpret_cast<uv_handle_t*>(&handle);
}

}  // namespace

/// The loop and what lives on it. All on the I/O thread but post(), port() and stopped().
class Server::Impl {
public:
    Impl(const Options& options, const Kiln::Clock& clock);
    ~Impl();

    void post(std::function<void()> fn);
    void turn() { uv_run(&loop_, UV_RUN_NOWAIT); }
    void run() { uv_run(&loop_, UV_RUN_DEFAULT); }
    void beginStop(Kiln::Duration grace);
    ServerStatus status() const;

    Router router;
    std::atomic<std::uint16_t> port{0};
    std::atomic<bool> stopped{false};
    std::thread thread;

    std::optional<std::string> listen() {
        auto failure = listener_.open(options_.address, options_.port);
        port = failure ? std::uint16_t{0} : listener_.port();
        return failure;
    }

private:
    void accepted(const Peer& peer);
    bool admits(const Peer& peer) const;
    void endOfTurn();
    void runPosted();
    void tickIfDue(Kiln::TimePoint now);
    void flushTouched();
    void reap();
    void checkStop(Kiln::TimePoint now);
    void armTimer(Kiln::TimePoint now);

    const Options options_;
    const Kiln::Clock& clock_;
    uv_loop_t loop_{};
    uv_async_t wake_{};
    uv_check_t check_{};
    uv_idle_t again_{};  // while active the loop does not wait
    uv_timer_t timer_{};

    Deadlines deadlines_;
    std::vector<Session*> touched_;
    std::vector<Session*> flushing_;
    Environment environment_;
    std::list<Connection> connections_;
    Listener listener_;
    Counters closedTotal_;
    std::uint64_t accepted_ = 0;
    std::uint64_t turnedAway_ = 0;
    Kiln::TimePoint nextTick_;
    std::optional<Kiln::TimePoint> stopAt_;
    bool dying_ = false;  // some connection may be dead

    std::mutex mutex_;
    std::vector<std::function<void()>> posted_;
    std::vector<std::function<void()>> running_;
};

Server::Impl::Impl(const Options& options, const Kiln::Clock& clock)
    : options_{options},
      clock_{clock},
      environment_{options_, clock_, router, deadlines_, touched_},
      listener_{&loop_, [this](const Peer& peer) { accepted(peer); }},
      nextTick_{clock.now() + kTick} {
    uv_loop_init(&loop_);
    loop_.data = this;
    uv_async_init(&loop_, &wake_, [](uv_async_t*) {});
    uv_check_init(&loop_, &check_);
    uv_check_start(&check_,
                   [](uv_check_t* handle) { static_cast<Impl*>(handle->loop->data)->endOfTurn(); });
    uv_idle_init(&loop_, &again_);
    uv_timer_init(&loop_, &timer_);
}

Server::Impl::~Impl() {
    listener_.close();
    connections_.clear();
    uv_close(handleOf(wake_), nullptr);
    uv_close(handleOf(check_), nullptr);
    uv_close(handleOf(again_), nullptr);
    uv_close(handleOf(timer_), nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
}

void Server::Impl::post(std::function<void()> fn) {
    const std::lock_guard lock{mutex_};
    posted_.push_back(std::move(fn));
    if (posted_.size() == 1) { uv_async_send(&wake_); }
}

bool Server::Impl::admits(const Peer& peer) const {
    if (stopAt_ || connections_.size() >= options_.maxConnections) { return false; }
    const auto same = std::count_if(connections_.begin(), connections_.end(), [&](const auto& c) {
        return c.address == peer.address;
    });
    return static_cast<std::size_t>(same) < options_.maxConnectionsPerPeer;
}

void Server::Impl::accepted(const Peer& peer) {
    if (!admits(peer)) {
        TRACE5("peer {} turned away: {} connections", peer.name(), connections_.size());
        ++turnedAway_;
        ::close(peer.socket);
        return;
    }
    ++accepted_;
    tune(peer.socket, options_);
    connections_.emplace_back(environment_, &loop_, peer);
}

void Server::Impl::endOfTurn() {
    runPosted();
    const auto now = clock_.now();
    deadlines_.expire(now);
    tickIfDue(now);
    checkStop(now);
    flushTouched();
    reap();
    if (stopAt_ && connections_.empty()) {
        stopped = true;
        uv_stop(&loop_);
    }
    armTimer(now);
}

void Server::Impl::runPosted() {
    {
        const std::lock_guard lock{mutex_};
        running_.swap(posted_);
    }
    for (const auto& fn : running_) { fn(); }
    running_.clear();
}

void Server::Impl::tickIfDue(Kiln::TimePoint now) {
    if (now < nextTick_) { return; }
    if (stopAt_) {
        nextTick_ = now + kStoppingTick;
    } else {
        nextTick_ = now + kTick;
    }
    listener_.resume();
    for (Connection& connection : connections_) { connection.session.tick(now); }
}

void Server::Impl::checkStop(Kiln::TimePoint now) {
    if (!stopAt_ || now < *stopAt_) { return; }
    for (Connection& connection : connections_) { connection.session.close(); }
}

void Server::Impl::flushTouched() {
    flushing_.swap(touched_);
    for (Session* session : flushing_) {
        if (session->flush()) { session->touch(); }
        dying_ = dying_ || session->dead();
    }
    flushing_.clear();
    if (touched_.empty()) {
        uv_idle_stop(&again_);
    } else {
        uv_idle_start(&again_, [](uv_idle_t*) {});
    }
    for (Connection& connection : connections_) {
        connection.poll.want(true, connection.session.blocked());
    }
}

void Server::Impl::reap() {
    if (!std::exchange(dying_, false)) { return; }
    for (auto it = connections_.begin(); it != connections_.end();) {
        if (!it->session.dead()) {
            ++it;
            continue;
        }
        std::erase(touched_, &it->session);
        it->session.abandon();
        closedTotal_ += it->session.counters();
        it = connections_.erase(it);
    }
}

void Server::Impl::armTimer(Kiln::TimePoint now) {
    auto next = nextTick_;
    if (deadlines_.next()) { next = std::min(next, *deadlines_.next()); }
    if (stopAt_ && *stopAt_ > now) { next = std::min(next, *stopAt_); }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
    // The timer only ends the wait; endOfTurn() follows in the next iteration, which must not wait.
    uv_timer_start(
        &timer_,
        [](uv_timer_t* handle) {
            uv_idle_start(&static_cast<Impl*>(handle->loop->data)->again_, [](uv_idle_t*) {});
        },
        static_cast<std::uint64_t>(std::max<std::int64_t>(wait, 0)),
        0);
}

void Server::Impl::beginStop(Kiln::Duration grace) {
    const auto at = clock_.now() + grace;
    if (!stopAt_) {
        listener_.close();
        for (Connection& connection : connections_) { connection.session.drain(); }
    }
    stopAt_ = stopAt_ ? std::min(*stopAt_, at) : at;
    nextTick_ = clock_.now();
}

ServerStatus Server::Impl::status() const {
    ServerStatus status;
    status.total = closedTotal_;
    status.accepted = accepted_;
    status.turnedAway = turnedAway_ + listener_.turnedAway();
    for (const Connection& connection : connections_) {
        const Session& session = connection.session;
        status.total += session.counters();
        status.connections.push_back({session.peer(), session.openCalls(), session.counters()});
    }
    return status;
}

Server::Server(const Options& options, const Kiln::Clock& clock)
    : impl_{std::make_unique<Impl>(options, clock)} {}

Server::~Server() {
    if (impl_->thread.joinable()) { stop(Kiln::Duration::zero()); }
}

Router& Server::router() {
    return impl_->router;
}

std::optional<std::string> Server::listen() {
    return impl_->listen();
}

std::uint16_t Server::port() const {
    return impl_->port;
}

void Server::start() {
    impl_->thread = std::thread([this] { impl_->run(); });
}

void Server::stop(Kiln::Duration grace) {
    beginStop(grace);
    if (impl_->thread.joinable()) { impl_->thread.join(); }
}

void Server::beginStop(Kiln::Duration grace) {
    post([this, grace] { impl_->beginStop(grace); });
}

bool Server::stopped() const {
    return impl_->stopped;
}

void Server::runOnce() {
    impl_->turn();
}

void Server::post(std::function<void()> fn) {
    impl_->post(std::move(fn));
}

ServerStatus Server::status() const {
    return impl_->status();
}

}  // namespace Gale::Wire
