#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "platform/Gale/Wire/Call.h"
#include "platform/Gale/Wire/Counters.h"
#include "platform/Gale/Wire/Deadlines.h"
#include "platform/Gale/Wire/MessageReader.h"
#include "platform/Gale/Wire/RequestHead.h"
#include "platform/Gale/Wire/Router.h"

namespace Gale::Wire {

class HeaderFields;
class Session;

/// One RPC on one HTTP/2 stream: judges the request, runs the handler, and hands the bytes of its
/// source to nghttp2 when that has room for a DATA frame.
///
/// Reply side: nothing sent -> headers sent (start, reply) -> ended (status submitted). `finish_`
/// is the handler's wish to end, fulfilled once the carried rest of a message is out. Only the
/// close of the stream destroys the call.
class StreamCall final : public Call {
public:
    StreamCall(Session& session, std::int32_t stream);
    ~StreamCall() override;

    std::string_view path() const override { return head_.path(); }
    const Metadata& metadata() const override { return head_.metadata(); }
    std::optional<Kiln::TimePoint> deadline() const override { return deadline_; }
    std::string_view peer() const override;
    std::optional<Kiln::TimePoint> blockedSince() const override;
    void addInitialMetadata(std::string name, std::string value) override;
    void addTrailer(std::string name, std::string value) override;
    void start(MessageSource& source) override;
    void resume() override;
    void resumeAt(Kiln::TimePoint at) override;
    void reply(std::span<const std::byte> message) override;
    void finish(Status status) override;

    // Input, from the session.
    bool header(std::string_view name, std::string_view value);  ///< false: head over the limit
    void headDone();
    void data(std::span<const std::byte> bytes);
    /// A DATA frame without payload that does not end the request; false: too many of them.
    bool emptyData();
    void requestDone();
    void closed(const Status& why);
    void windowOpened();

    /// nghttp2 has room: bytes written, or NGHTTP2_ERR_DEFERRED.
    ssize_t read(std::span<std::byte> out, std::uint32_t& flags);

    /// Ends the call now for the layer's own reason, whatever the reply was about to say.
    void abort(const Status& status, Count count);
    /// Data has waited for the client for the stall time.
    bool stalled(Kiln::TimePoint now) const;
    std::size_t buffered() const { return reader_.buffered() + request_.size(); }

private:
    bool over() const { return ended_ || finish_.has_value(); }
    /// There is something to send, or to ask the source for.
    bool waiting() const { return headersSent_ && !ended_ && (carryLeft() > 0 || !idle_); }
    bool unary() const { return method_->kind != MethodKind::Bidi; }
    std::size_t carryLeft() const { return carry_.size() - carryAt_; }

    void refuse(const Status& status, int httpStatus = 200);
    void message(std::span<const std::byte> bytes);
    void runUnary();
    bool makeHandler();
    void cancelHandler(const Status& why);
    template <class Fn>
    void guarded(Fn&& fn);

    void submitHeaders();
    void end(const Status& status, int httpStatus = 200);
    HeaderFields responseHeaders(int httpStatus) const;

    std::size_t leastWindow() const;
    std::size_t takeCarry(std::span<std::byte> out);
    std::size_t pull(std::span<std::byte> out);
    Fill askSource(std::span<std::byte> out);

    Session& session_;
    const std::int32_t stream_;
    RequestHead head_;
    MessageReader reader_;
    const Router::Method* method_ = nullptr;
    std::vector<std::byte> request_;  // of a unary call, until the request is complete
    bool haveRequest_ = false;
    bool headDone_ = false;
    unsigned emptyData_ = 0;

    std::optional<Kiln::TimePoint> deadline_;
    Metadata initialMetadata_;
    Metadata trailers_;
    MessageSource* source_ = nullptr;  // borrowed from the handler
    std::vector<std::byte> carry_;     // a message that did not fit into its frame
    std::size_t carryAt_ = 0;
    std::optional<Status> finish_;
    bool headersSent_ = false;
    bool ended_ = false;
    bool idle_ = false;        // the source said so; resume() clears it
    bool windowWait_ = false;  // deferred until the window is worth a frame
    bool inFill_ = false;
    Kiln::TimePoint lastProgress_;

    Deadlines::Timer timer_;  // of deadline_
    Deadlines::Timer resumeTimer_;
    std::unique_ptr<CallHandler> handler_;  // last: dies before what it refers to
};

}  // namespace Gale::Wire
