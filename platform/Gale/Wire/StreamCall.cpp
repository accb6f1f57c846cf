#include "platform/Gale/Wire/StreamCall.h"

#include <nghttp2/nghttp2.h>

#include <algorithm>
#include <exception>
#include <string>

#include "platform/Blink/Trace.h"
#include "platform/Gale/Wire/HeaderFields.h"
#include "platform/Gale/Wire/Options.h"
#include "platform/Gale/Wire/Session.h"

BLINK_TRACE_HANDLE("GaleWire");

namespace Gale::Wire {
namespace {

constexpr unsigned kMaxEmptyData = 100;
constexpr std::size_t kWorthwhileWindow = 1024;

ssize_t readSource(nghttp2_session*,
                   std::int32_t,
                   std::uint8_t* buffer,
                   std::size_t length,
                   std::uint32_t* flags,
                   nghttp2_data_source* source,
                   void*) {
    auto& call = *static_cast<StreamCall*>(source->ptr);
    return call.read({reinterpret_cast<std::byte*>(buffer), length}, *flags);
}

}  // namespace

StreamCall::StreamCall(Session& session, std::int32_t stream)
    : session_{session},
      stream_{stream},
      head_{session.environment().options.maxHeaderList},
      reader_{session.environment().options.maxReceiveMessage},
      lastProgress_{session.environment().clock.now()},
      timer_{session.environment().deadlines,
             [this] {
                 abort({Code::DeadlineExceeded, "deadline exceeded"}, Count::CallsExpired);
             }},
      resumeTimer_{session.environment().deadlines, [this] { resume(); }} {}

StreamCall::~StreamCall() = default;

std::string_view StreamCall::peer() const {
    return session_.peer();
}

std::optional<Kiln::TimePoint> StreamCall::blockedSince() const {
    if (const auto since = session_.unwrittenSince()) { return since; }
    return waiting() ? std::optional{lastProgress_} : std::nullopt;
}

// --- request ---

bool StreamCall::header(std::string_view name, std::string_view value) {
    return headDone_ ? head_.count(name, value) : head_.add(name, value);
}

void StreamCall::headDone() {
    TRACE9("peer {} stream {} path {}", peer(), stream_, path());
    headDone_ = true;
    session_.counters().add(Count::CallsStarted);
    if (head_.teMissing()) { session_.counters().add(Count::MissingTe); }
    if (auto refusal = head_.check()) { return refuse(refusal->status, refusal->httpStatus); }
    method_ = session_.environment().router.find(head_.path());
    if (method_ == nullptr) {
        return refuse({Code::Unimplemented, "unknown method " + std::string{head_.path()}});
    }
    if (head_.timeout()) {
        deadline_ = session_.environment().clock.now() + *head_.timeout();
        timer_.arm(*deadline_);
    }
    if (!unary()) { makeHandler(); }
}

void StreamCall::data(std::span<const std::byte> bytes) {
    if (over() || method_ == nullptr) { return; }
    auto failure = reader_.feed(bytes, [this](auto whole) { message(whole); });
    if (failure) { refuse(*failure); }
}

bool StreamCall::emptyData() {
    return ++emptyData_ <= kMaxEmptyData;
}

void StreamCall::message(std::span<const std::byte> bytes) {
    session_.counters().add(Count::MessagesReceived);
    if (over()) { return; }
    if (!unary()) {
        guarded([&] { handler_->onMessage(bytes); });
    } else if (haveRequest_) {
        refuse({Code::Unimplemented, "more than one request message"});
    } else {
        haveRequest_ = true;
        request_.assign(bytes.begin(), bytes.end());
    }
}

void StreamCall::requestDone() {
    if (over() || method_ == nullptr) { return; }
    if (auto failure = reader_.end()) { return refuse(*failure); }
    if (!unary()) {
        guarded([&] { handler_->onHalfClose(); });
    } else if (haveRequest_) {
        runUnary();
    } else {
        refuse({Code::Unimplemented, "no request message"});
    }
}

void StreamCall::runUnary() {
    const std::vector<std::byte> request = std::exchange(request_, {});
    if (!makeHandler()) { return; }
    guarded([&] { handler_->onMessage(request); });
    if (!over()) {
        guarded([&] { handler_->onHalfClose(); });
    }
}

bool StreamCall::makeHandler() {
    guarded([&] { handler_ = method_->factory(*this); });
    if (!handler_ && !over()) { refuse({Code::Internal, "no handler"}); }
    return handler_ && !over();
}

template <class Fn>
void StreamCall::guarded(Fn&& fn) {
    try {
        fn();
    } catch (const std::exception&) { finish({Code::Unknown, "the handler failed"}); }
}

void StreamCall::closed(const Status& why) {
    if (!ended_) { session_.counters().add(Count::CallsCancelled); }
    if (!over()) { cancelHandler(why); }
    ended_ = true;
}

void StreamCall::cancelHandler(const Status& why) {
    source_ = nullptr;
    resumeTimer_.disarm();
    if (!handler_) { return; }
    ended_ = true;  // what the handler may still call has no effect
    try {
        handler_->onCancelled(why);
    } catch (const std::exception&) { session_.counters().add(Count::HandlerFailures); }
    handler_.reset();
}

// --- reply ---

void StreamCall::addInitialMetadata(std::string name, std::string value) {
    initialMetadata_.push_back({std::move(name), std::move(value)});
}

void StreamCall::addTrailer(std::string name, std::string value) {
    trailers_.push_back({std::move(name), std::move(value)});
}

HeaderFields StreamCall::responseHeaders(int httpStatus) const {
    HeaderFields fields;
    fields.add(":status", std::to_string(httpStatus));
    fields.add("content-type", head_.replyContentType());
    fields.add("grpc-accept-encoding", "identity");
    fields.add(initialMetadata_);
    return fields;
}

void StreamCall::submitHeaders() {
    const HeaderFields fields = responseHeaders(200);
    const auto view = fields.view();
    nghttp2_data_provider provider{};
    provider.source.ptr = this;
    provider.read_callback = readSource;
    nghttp2_submit_response(session_.http2(), stream_, view.data(), view.size(), &provider);
    headersSent_ = true;
    lastProgress_ = session_.environment().clock.now();
    session_.touch();
}

void StreamCall::start(MessageSource& source) {
    if (over() || headersSent_) { return; }
    source_ = &source;
    submitHeaders();
}

void StreamCall::resume() {
    if (over() || !idle_) { return; }
    idle_ = false;
    lastProgress_ = session_.environment().clock.now();
    nghttp2_session_resume_data(session_.http2(), stream_);
    session_.touch();
}

void StreamCall::resumeAt(Kiln::TimePoint at) {
    if (!over()) { resumeTimer_.arm(at); }
}

void StreamCall::reply(std::span<const std::byte> bytes) {
    if (over() || headersSent_) { return; }
    carry_.resize(kPrefixBytes + bytes.size());
    putPrefix(carry_.data(), bytes.size());
    std::copy(bytes.begin(), bytes.end(), carry_.begin() + kPrefixBytes);
    finish_ = Status{};
    submitHeaders();
}

void StreamCall::finish(Status status) {
    if (over()) { return; }
    if (inFill_ || carryLeft() > 0) {
        finish_ = std::move(status);  // read() ends the call after the message in progress
        return;
    }
    session_.counters().add(Count::CallsFinished);
    end(status);
}

void StreamCall::refuse(const Status& status, int httpStatus) {
    if (over()) { return; }
    TRACE5("peer {} path {} refused: {}", peer(), path(), status.message);
    session_.counters().add(Count::CallsRefused);
    cancelHandler(status);
    end(status, httpStatus);
}

void StreamCall::abort(const Status& status, Count count) {
    if (ended_) { return; }
    session_.counters().add(count);
    if (!over()) { cancelHandler(status); }
    end(status);
}

void StreamCall::end(const Status& status, int httpStatus) {
    ended_ = true;
    source_ = nullptr;
    timer_.disarm();
    resumeTimer_.disarm();
    HeaderFields fields = headersSent_ ? HeaderFields{} : responseHeaders(httpStatus);
    fields.add(status);
    fields.add(trailers_);
    const auto view = fields.view();
    if (headersSent_) {
        nghttp2_submit_trailer(session_.http2(), stream_, view.data(), view.size());
    } else {
        nghttp2_submit_response(session_.http2(), stream_, view.data(), view.size(), nullptr);
    }
    session_.touch();
}

// --- pulling ---

std::size_t StreamCall::leastWindow() const {
    // Tiny frames cost the client and us; a client that never opens more gets what it asks for.
    const std::size_t initial =
        nghttp2_session_get_remote_settings(session_.http2(), NGHTTP2_SETTINGS_INITIAL_WINDOW_SIZE);
    return std::clamp<std::size_t>(initial / 2, 1, kWorthwhileWindow);
}

void StreamCall::windowOpened() {
    if (!windowWait_) { return; }
    const auto stream = nghttp2_session_get_stream_remote_window_size(session_.http2(), stream_);
    const auto all = nghttp2_session_get_remote_window_size(session_.http2());
    if (std::min(stream, all) < static_cast<std::int32_t>(leastWindow())) { return; }
    windowWait_ = false;
    nghttp2_session_resume_data(session_.http2(), stream_);
}

ssize_t StreamCall::read(std::span<std::byte> out, std::uint32_t& flags) {
    if (ended_) { return NGHTTP2_ERR_DEFERRED; }
    const bool lastBytes = (finish_ || carryLeft() > 0) && carryLeft() <= out.size();
    if (out.size() < kWorthwhileWindow && out.size() < leastWindow() && !lastBytes) {
        windowWait_ = true;
        return NGHTTP2_ERR_DEFERRED;
    }
    std::size_t n = takeCarry(out);
    while (n < out.size() && source_ != nullptr && !idle_ && !finish_) {
        n += pull(out.subspan(n));
    }
    if (n > 0) { lastProgress_ = session_.environment().clock.now(); }
    if (finish_ && carryLeft() == 0) {
        flags |= NGHTTP2_DATA_FLAG_EOF | NGHTTP2_DATA_FLAG_NO_END_STREAM;
        session_.counters().add(Count::CallsFinished);
        end(*finish_);
        return static_cast<ssize_t>(n);
    }
    return n > 0 ? static_cast<ssize_t>(n) : ssize_t{NGHTTP2_ERR_DEFERRED};
}

std::size_t StreamCall::takeCarry(std::span<std::byte> out) {
    const std::size_t n = std::min(carryLeft(), out.size());
    std::copy_n(carry_.begin() + static_cast<std::ptrdiff_t>(carryAt_), n, out.begin());
    carryAt_ += n;
    if (carryLeft() == 0) {
        carry_.clear();
        carryAt_ = 0;
    }
    return n;
}

Fill StreamCall::askSource(std::span<std::byte> out) {
    inFill_ = true;
    Fill fill = Fill::finished(0, {Code::Unknown, "the handler failed"});
    guarded([&] { fill = source_->fill(out); });
    inFill_ = false;
    const bool stuck = fill.state == Fill::State::More && fill.bytes == 0 && fill.need == 0;
    if (stuck || fill.bytes > out.size()) {
        fill = Fill::finished(0, {Code::Internal, "the message source broke its contract"});
    }
    if (fill.state == Fill::State::Finished && !finish_) { finish_ = std::move(fill.status); }
    idle_ = fill.state == Fill::State::Idle;
    return fill;
}

std::size_t StreamCall::pull(std::span<std::byte> out) {
    const Fill fill = askSource(out);
    if (fill.state != Fill::State::More || fill.need == 0 || fill.bytes == out.size()) {
        return fill.bytes;
    }
    carry_.resize(fill.need);
    carry_.resize(askSource(carry_).bytes);
    return fill.bytes + takeCarry(out.subspan(fill.bytes));
}

bool StreamCall::stalled(Kiln::TimePoint now) const {
    return waiting() && now - lastProgress_ >= session_.environment().options.stallTime;
}

}  // namespace Gale::Wire
