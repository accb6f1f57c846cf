#include "platform/AgentHost/CommandSession.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("CommandServer");

namespace AgentHost {
namespace {

constexpr std::size_t kPieceBytes = 32U << 10U;
constexpr Kiln::TaskPriority kPriority = 5;
constexpr Kiln::TaskPriority kHeartbeatPriority = 1;  // in front of what the agent is busy with

/// The request of one line, or nullopt with what is wrong with it.
std::optional<CommandRequest> parse(std::string_view line, std::string& error) {
    const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    if (!json.is_object() || !json.contains("command") || !json["command"].is_string()) {
        error = "a request is a line with a JSON object that has a \"command\"";
        return std::nullopt;
    }
    CommandRequest request;
    request.command = json["command"].get<std::string>();
    if (json.contains("format")) {
        if (json["format"] != "text" && json["format"] != "json") {
            error = R"("format" is "text" or "json")";
            return std::nullopt;
        }
        request.format = json["format"] == "json" ? OutputFormat::json : OutputFormat::text;
    }
    if (!json.contains("parameters")) { return request; }
    if (!json["parameters"].is_object()) {
        error = "\"parameters\" is an object of strings";
        return std::nullopt;
    }
    for (const auto& [name, value] : json["parameters"].items()) {
        if (!value.is_string()) {
            error = "parameter " + name + " is no string";
            return std::nullopt;
        }
        request.parameters[name] = value.get<std::string>();
    }
    return request;
}

std::string line(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

/// Where to cut a text into pieces: not inside a UTF-8 character.
std::size_t pieceEnd(std::string_view text, std::size_t begin) {
    if (text.size() - begin <= kPieceBytes) { return text.size(); }
    std::size_t end = begin + kPieceBytes;
    for (int i = 0; i < 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U; ++i) {
        --end;
    }
    return end;
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

CommandSession::CommandSession(int fd,
                               Vel::Ref<Kiln::TaskScheduler> scheduler,
                               Vel::Ref<CmdRequestDirSm> commands,
                               const CommandServer::Limits& limits,
                               std::function<void()> gone)
    : fd_{fd},
      scheduler_{std::move(scheduler)},
      commands_{std::move(commands)},
      limits_{limits},
      gone_{std::move(gone)},
      idle_{scheduler_,
            "ControlSession",
            kPriority,
            [this] {
                TRACE9("client {} idle", fd_);
                end();
                return false;
            }},
      heartbeat_{scheduler_, "ControlHeartbeat", kHeartbeatPriority, [this] {
                     handleHeartbeat();
                     return false;
                 }} {
    self_ = std::make_shared<CommandSession*>(this);
    waitReadable();
    progress();
}

CommandSession::~CommandSession() {
    waitForNothing();
    ::close(fd_);
}

std::size_t CommandSession::bufferedBytes() const {
    return frame_.size() - frameOffset_ + reply_.output.size() - replyOffset_ +
           (run_ ? run_->buffered() : 0);
}

void CommandSession::end() {
    const std::function<void()> gone = std::move(gone_);  // it deletes this object
    gone();
}

void CommandSession::progress() {
    idle_.scheduleAfter(limits_.idleTime);
}

// While an asynchronous command is served both directions are watched, else one. A watch goes before
// the next one of its direction comes.
void CommandSession::waitReadable() {
    waitForNothing();
    readable_ = scheduler_->watchReadable(fd_, [this] { handleReadable(); });
}

void CommandSession::waitWritable() {
    if (!run_) { readable_ = Kiln::FdWatch{}; }
    writable_ = Kiln::FdWatch{};
    writable_ = scheduler_->watchWritable(fd_, [this] { handleWritable(); });
}

void CommandSession::waitForNothing() {
    readable_ = Kiln::FdWatch{};
    writable_ = Kiln::FdWatch{};
}

void CommandSession::handleReadable() {
    const Step step = receive();
    if (step == Step::end) {
        // A client that has said all that it has to say still waits for its answer.
        if (run_ && !hungUp()) {
            readable_ = Kiln::FdWatch{};
        } else {
            end();
        }
        return;
    }
    if (step == Step::wait) { return; }
    if (run_) {
        handleSignOfLife();
    } else {
        takeRequest();
    }
}

bool CommandSession::hungUp() const {
    pollfd asked{fd_, 0, 0};
    return ::poll(&asked, 1, 0) == 1 && (asked.revents & (POLLHUP | POLLERR)) != 0;
}

void CommandSession::handleSignOfLife() {
    progress();
    if (input_.find_first_not_of(' ') == std::string::npos) { input_.clear(); }
    // The next request may be on its way; it is taken when this one is answered.
    if (input_.size() > limits_.requestBytes) { readable_ = Kiln::FdWatch{}; }
}

void CommandSession::handleWritable() {
    if (send() == Step::end) {
        end();
        return;
    }
    if (frameOffset_ < frame_.size() || nextFrame() || takeRequest()) { return; }
    if (closing_) {
        end();
        return;
    }
    waitReadable();
}

CommandSession::Step CommandSession::receive() {
    std::array<char, kPieceBytes>
        piece;  // NOLINT(cppcoreguidelines-pro-type-member-init): read into
    const ssize_t size = ::recv(fd_, piece.data(), piece.size(), 0);
    if (size < 0) { return wouldBlock() ? Step::wait : Step::end; }
    if (size == 0) { return Step::end; }
    // A request that trickles in is no progress: its time counts from its first byte.
    if (input_.empty()) { progress(); }
    input_.append(piece.data(), static_cast<std::size_t>(size));
    return Step::again;
}

CommandSession::Step CommandSession::send() {
    if (frameOffset_ >= frame_.size()) { return Step::again; }
    const ssize_t size =
        ::send(fd_, &frame_[frameOffset_], frame_.size() - frameOffset_, MSG_NOSIGNAL);
    if (size < 0) { return wouldBlock() ? Step::wait : Step::end; }
    frameOffset_ += static_cast<std::size_t>(size);
    progress();
    if (run_) { heartbeat_.scheduleAfter(limits_.heartbeat); }
    return Step::again;
}

bool CommandSession::takeRequest() {
    if (closing_) { return false; }
    const std::size_t end = input_.find('\n');
    const bool tooLong = std::min(end, input_.size()) > limits_.requestBytes;
    if (end == std::string::npos && !tooLong) { return false; }
    waitForNothing();  // nothing is read or written until the answer is there
    awaited_ = ++requests_;
    if (tooLong) {
        closing_ = true;  // where the next request begins is not known
        answerIs({{}, "a request has at most " + std::to_string(limits_.requestBytes) + " bytes"});
        return true;
    }
    std::string error;
    auto request = parse(std::string_view{input_}.substr(0, end), error);
    input_.erase(0, end + 1);
    if (!request) {
        answerIs({{}, error});
        return true;
    }
    request->socket = fd_;
    const std::weak_ptr<CommandSession*> weak = self_;
    auto machine = commands_->requestIs(*request, [weak, number = awaited_](CommandReply reply) {
        const auto self = weak.lock();
        if (self != nullptr && (*self)->awaited_ == number) { (*self)->answerIs(std::move(reply)); }
    });
    if (machine) { serve(std::move(machine)); }
    return true;
}

void CommandSession::answerIs(CommandReply reply) {
    awaited_ = 0;
    reply_ = std::move(reply);
    replyOffset_ = 0;
    replying_ = true;
    nextFrame();
    waitWritable();
    progress();
}

void CommandSession::serve(Vel::Ref<AsyncShowCommandInstanceSm> machine) {
    awaited_ = 0;
    replying_ = true;
    run_ = std::make_unique<AsyncCommandRun>(
        scheduler_, std::move(machine), [this] { handleProduced(); });
    run_->produce();
    waitReadable();
    heartbeat_.scheduleAfter(limits_.heartbeat);
    progress();
}

void CommandSession::handleProduced() {
    reply_ = {run_->takeOutput(), run_->error()};
    replyOffset_ = 0;
    waitWritable();
}

void CommandSession::handleHeartbeat() {
    if (!run_) { return; }
    if (frameOffset_ >= frame_.size() && reply_.output.empty()) {
        frame_ = line({{"heartbeat", true}});
        frameOffset_ = 0;
        waitWritable();
    }
    heartbeat_.scheduleAfter(limits_.heartbeat);
}

bool CommandSession::nextFrame() {
    if (!replying_) { return false; }
    frameOffset_ = 0;
    if (replyOffset_ < reply_.output.size()) {
        const std::size_t end = pieceEnd(reply_.output, replyOffset_);
        frame_ = line({{"output", reply_.output.substr(replyOffset_, end - replyOffset_)}});
        replyOffset_ = end;
        return true;
    }
    frame_.clear();
    if (run_ && !run_->done()) {
        reply_ = {};
        replyOffset_ = 0;
        writable_ = Kiln::FdWatch{};
        run_->produce();
        return true;
    }
    nlohmann::json last{{"end", true}};
    if (!reply_.error.empty()) { last["error"] = reply_.error; }
    frame_ = line(last);
    reply_ = {};
    replyOffset_ = 0;
    replying_ = false;
    run_.reset();
    readable_ = Kiln::FdWatch{};
    return true;
}

}  // namespace AgentHost
