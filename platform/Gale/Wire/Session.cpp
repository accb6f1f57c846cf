#include "platform/Gale/Wire/Session.h"

#include <nghttp2/nghttp2.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "platform/Blink/Trace.h"
#include "platform/Gale/Wire/Options.h"
#include "platform/Gale/Wire/SessionCallbacks.h"
#include "platform/Gale/Wire/StreamCall.h"

BLINK_TRACE_HANDLE("GaleWire");

namespace Gale::Wire {
namespace {

// One read is one step of input: less than nghttp2's limit of 1,000 unanswered PINGs of 17 bytes.
constexpr std::size_t kReadBytes = 16U << 10U;
constexpr int kReadsPerTurn = 4;
constexpr auto kLinger = std::chrono::seconds(1);
constexpr auto kDrainPing = std::chrono::seconds(5);

}  // namespace

Session::Session(const Environment& environment, std::unique_ptr<Pipe> pipe, std::string peer)
    : environment_{environment},
      pipe_{std::move(pipe)},
      peer_{std::move(peer)},
      guard_{environment.clock},
      keepalive_{{environment.options.keepaliveTime,
                  environment.options.keepaliveTimeout,
                  environment.options.pingPermit},
                 environment.clock.now()},
      born_{environment.clock.now()},
      lastWrite_{born_} {
    TRACE9("peer {}", peer_);
    http2_ = SessionCallbacks::make(*this);
    touch();
}

Session::~Session() {
    abandon();
    nghttp2_session_del(http2_);
}

void Session::abandon() {
    cancelCalls({Code::Cancelled, "connection lost"});
}

void Session::touch() {
    if (touched_) { return; }
    touched_ = true;
    environment_.touched.push_back(this);
}

// --- input ---

void Session::readable() {
    std::array<std::byte, kReadBytes> buffer;  // NOLINT(*-member-init): filled by the read
    touch();
    for (int i = 0; i < kReadsPerTurn && !dead_; ++i) {
        const auto outcome = pipe_->read(buffer);
        if (outcome.result == Pipe::Result::Blocked) { return; }
        if (outcome.result == Pipe::Result::Dead) {
            dead_ = true;
            return;
        }
        if (!closeBy_) { receive(std::span{buffer}.first(outcome.bytes)); }
        if (outcome.bytes < buffer.size()) { return; }
    }
}

void Session::writable() {
    blocked_ = false;
    touch();
}

void Session::receive(std::span<const std::byte> bytes) {
    counters_.add(Count::BytesReceived, bytes.size());
    keepalive_.received(environment_.clock.now());
    const std::size_t frames = frames_.feed(bytes);
    counters_.add(Count::FramesReceived, frames);
    charge(Offence::Frame, static_cast<double>(frames));
    if (closeBy_) { return; }
    const ssize_t n = nghttp2_session_mem_recv(
        http2_, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    if (n < 0) {
        TRACE5("peer {} broke HTTP/2: {}", peer_, nghttp2_strerror(static_cast<int>(n)));
        closing(environment_.clock.now());
    }
    fillOutput();
}

void Session::onRequestData(StreamCall& call, std::span<const std::byte> bytes) {
    call.data(bytes);
    if (bufferedRequests() > environment_.options.maxBufferedRequests) {
        call.abort({Code::ResourceExhausted, "too many request bytes on one connection"},
                   Count::CallsRefused);
    }
}

std::size_t Session::bufferedRequests() const {
    std::size_t sum = 0;
    for (const auto& [id, call] : calls_) { sum += call->buffered(); }
    return sum;
}

void Session::onPing() {
    counters_.add(Count::PingsReceived);
    const auto verdict = keepalive_.ping(environment_.clock.now());
    if (verdict == Keepalive::Verdict::Fine) { return; }
    counters_.add(Count::PingStrikes);
    if (verdict == Keepalive::Verdict::TooMany) { shutOut("too_many_pings"); }
}

void Session::onSettings() {
    counters_.add(Count::SettingsReceived);
    if (settingsSeen_) { charge(Offence::Settings); }
    settingsSeen_ = true;
    onWindow(0);
}

void Session::onWindow(std::int32_t stream) {
    if (stream == 0) {
        for (auto& [id, call] : calls_) { call->windowOpened(); }
    } else if (const auto it = calls_.find(stream); it != calls_.end()) {
        it->second->windowOpened();
    }
}

void Session::onResetSent(std::uint32_t code) {
    counters_.add(Count::ResetsSent);
    if (code == NGHTTP2_NO_ERROR) { return; }
    // An honest client may race our first SETTINGS with more calls than allowed.
    charge(Offence::ProvokedReset, code == NGHTTP2_REFUSED_STREAM ? 0.1 : 1);
}

void Session::onProgress() {
    guard_.progress();
    keepalive_.progress();
}

void Session::onClosed(std::int32_t stream, std::uint32_t code) {
    const auto it = calls_.find(stream);
    if (it == calls_.end()) { return; }
    const auto call = std::move(it->second);
    calls_.erase(it);
    call->closed({Code::Cancelled, "stream closed with code " + std::to_string(code)});
}

void Session::charge(Offence offence, double cost) {
    if (!guard_.charge(offence, cost)) { shutOut(name(offence)); }
}

void Session::shutOut(std::string_view text) {
    if (closeBy_) { return; }
    TRACE5("peer {} shut out: {}", peer_, text);
    counters_.add(Count::GuardTrips);
    nghttp2_submit_goaway(http2_,
                          NGHTTP2_FLAG_NONE,
                          nghttp2_session_get_last_proc_stream_id(http2_),
                          NGHTTP2_ENHANCE_YOUR_CALM,
                          reinterpret_cast<const std::uint8_t*>(text.data()),
                          text.size());
    closing(environment_.clock.now());
}

// --- output ---

void Session::fillOutput() {
    if (outputAt_ > 0 && outputAt_ == output_.size()) {
        output_.clear();
        outputAt_ = 0;
    }
    const bool wasEmpty = output_.empty();
    while (outputLeft() < environment_.options.outputBuffer) {
        const std::uint8_t* frame = nullptr;
        const ssize_t n = nghttp2_session_mem_send(http2_, &frame);
        if (n < 0) { dead_ = true; }
        if (n <= 0) { break; }
        const auto* bytes = reinterpret_cast<const std::byte*>(frame);
        output_.insert(output_.end(), bytes, bytes + n);
    }
    if (wasEmpty) { lastWrite_ = environment_.clock.now(); }
}

bool Session::writeOutput() {
    const auto outcome = pipe_->write(std::span{output_}.subspan(outputAt_));
    counters_.add(Count::Writes);
    if (outcome.result == Pipe::Result::Dead) { dead_ = true; }
    if (outcome.result == Pipe::Result::Progress) {
        counters_.add(Count::BytesSent, outcome.bytes);
        outputAt_ += outcome.bytes;
        lastWrite_ = environment_.clock.now();
    }
    blocked_ = outputLeft() > 0;
    if (blocked_ && outputAt_ > 0) {
        output_.erase(output_.begin(), output_.begin() + static_cast<std::ptrdiff_t>(outputAt_));
        outputAt_ = 0;
    }
    return !blocked_ && !dead_;
}

bool Session::flush() {
    touched_ = false;
    for (int share = 0; share < 2; ++share) {
        if (dead_ || lingering_ || blocked_) { return false; }
        fillOutput();
        if (outputLeft() == 0) {
            settled();
            return false;
        }
        if (!writeOutput()) { return false; }
    }
    return true;
}

void Session::settled() {
    const bool over = !nghttp2_session_want_read(http2_) && !nghttp2_session_want_write(http2_);
    if (over) { closing(environment_.clock.now()); }
    if (!closeBy_) { return; }
    // Closing a socket with unread input resets it, and the client would lose what was written.
    cancelCalls({Code::Unavailable, "connection closed"});
    pipe_->shutdownWrite();
    lingering_ = true;
}

// --- end ---

void Session::closing(Kiln::TimePoint now) {
    if (!closeBy_) { closeBy_ = now + kLinger; }
    touch();
}

void Session::cancelCalls(const Status& why) {
    while (!calls_.empty()) {
        const auto call = std::move(calls_.begin()->second);
        calls_.erase(calls_.begin());
        call->closed(why);
    }
}

void Session::drain() {
    if (drain_ != Drain::No || closeBy_) { return; }
    drain_ = Drain::Noticed;
    noticed_ = environment_.clock.now();
    nghttp2_submit_shutdown_notice(http2_);
    nghttp2_submit_ping(http2_, NGHTTP2_FLAG_NONE, nullptr);
    touch();
}

void Session::finishDrain() {
    if (drain_ != Drain::Noticed) { return; }
    drain_ = Drain::Done;
    nghttp2_submit_goaway(http2_,
                          NGHTTP2_FLAG_NONE,
                          nghttp2_session_get_last_proc_stream_id(http2_),
                          NGHTTP2_NO_ERROR,
                          nullptr,
                          0);
    touch();
}

void Session::close() {
    if (closeBy_) { return; }
    for (auto& [id, call] : calls_) {
        call->abort({Code::Unavailable, "the server is shutting down"}, Count::CallsCancelled);
    }
    if (drain_ == Drain::No) { drain_ = Drain::Noticed; }
    finishDrain();
    closing(environment_.clock.now());
}

void Session::tickCalls(Kiln::TimePoint now) {
    for (auto& [id, call] : calls_) {
        if (call->stalled(now)) {
            TRACE5("peer {} takes no data of {}", peer_, call->path());
            call->abort({Code::Unavailable, "the client takes no data"}, Count::CallsStalled);
        }
    }
}

bool Session::timedOut(Kiln::TimePoint now) {
    if (closeBy_) { return now >= *closeBy_; }
    if (!settingsSeen_ && now - born_ >= environment_.options.prefaceTime) { return true; }
    return outputLeft() > 0 && now - lastWrite_ >= environment_.options.stallTime;
}

void Session::tick(Kiln::TimePoint now) {
    if (timedOut(now)) {
        TRACE5("peer {} timed out, {} bytes unread", peer_, outputLeft());
        if (outputLeft() > 0) { cancelCalls({Code::Unavailable, "the client takes no data"}); }
        dead_ = true;
        touch();
        return;
    }
    if (closeBy_) { return; }
    tickCalls(now);
    if (drain_ == Drain::Noticed && now - noticed_ >= kDrainPing) { finishDrain(); }
    switch (keepalive_.tick(now)) {
        case Keepalive::Action::None:
            return;
        case Keepalive::Action::SendPing:
            nghttp2_submit_ping(http2_, NGHTTP2_FLAG_NONE, nullptr);
            break;
        case Keepalive::Action::Close:
            TRACE5("peer {} does not answer", peer_);
            counters_.add(Count::KeepaliveTimeouts);
            dead_ = true;
            break;
    }
    touch();
}

}  // namespace Gale::Wire
