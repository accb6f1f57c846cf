#include "apps/cli/ControlClient.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <system_error>

#include "apps/cli/ExitCode.h"

namespace Pel::Cli {
namespace {

using Clock = std::chrono::steady_clock;
using Outcome = ControlResult::Outcome;

/// A connection on which nothing is waited for longer than the timeout.
class Connection {
public:
    explicit Connection(std::chrono::milliseconds timeout)
        : timeout_{timeout},
          fd_{::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)} {}
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() {
        if (fd_ >= 0) { ::close(fd_); }
    }

    /// 0 or the error number.
    int connect(const std::filesystem::path& path) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.native().size() >= sizeof address.sun_path) { return ENAMETOOLONG; }
        std::memcpy(address.sun_path, path.c_str(), path.native().size());
        // With a full queue the kernel says EAGAIN: the host accepts nobody, so it hangs.
        return ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
                   ? 0
                   : errno;
    }
    bool send(std::string_view bytes) {
        alive();
        while (!bytes.empty()) {
            if (!wait(POLLOUT)) { return false; }
            const ssize_t size = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (size < 0 && errno != EAGAIN) { return false; }
            if (size > 0) { bytes.remove_prefix(static_cast<std::size_t>(size)); }
        }
        return true;
    }
    /// Tells the other side that it is being waited for. Not so important as to wait for.
    void stillHere() const { ::send(fd_, " ", 1, MSG_NOSIGNAL | MSG_DONTWAIT); }
    /// The next line; nullopt when none came in time, or the other side went.
    std::optional<std::string> line() {
        alive();
        while (true) {
            const std::size_t end = input_.find('\n');
            if (end != std::string::npos) {
                std::string result = input_.substr(0, end);
                input_.erase(0, end + 1);
                return result;
            }
            if (!wait(POLLIN)) { return std::nullopt; }
            std::array<char, 65536> piece{};
            const ssize_t size = ::recv(fd_, piece.data(), piece.size(), 0);
            if (size == 0 || (size < 0 && errno != EAGAIN)) {
                gone_ = true;
                return std::nullopt;
            }
            if (size > 0) { input_.append(piece.data(), static_cast<std::size_t>(size)); }
        }
    }
    bool gone() const { return gone_; }

private:
    bool wait(short events) const {
        pollfd waiting{fd_, events, 0};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
        return left.count() > 0 && ::poll(&waiting, 1, static_cast<int>(left.count())) == 1;
    }

    void alive() { deadline_ = Clock::now() + timeout_; }

    std::chrono::milliseconds timeout_;
    Clock::time_point deadline_;
    int fd_;
    std::string input_;
    bool gone_ = false;
};

ControlResult unconnected(int problem, const std::filesystem::path& root) {
    const std::string where = root.string();
    if (problem == EAGAIN) {
        return {Outcome::noAnswer, {}, "the agent in " + where + " takes no requests: it hangs"};
    }
    if (problem == ENOENT || problem == ECONNREFUSED) {
        return {Outcome::nobody, {}, "no agent runs in " + where + "; start one with: pel up"};
    }
    return {
        Outcome::nobody,
        {},
        "the agent in " + where + " cannot be asked: " + std::generic_category().message(problem)};
}

}  // namespace

int ControlResult::exitCode() const {
    switch (outcome) {
        case Outcome::answered:
            return kDone;
        case Outcome::refused:
            return kFailed;
        case Outcome::nobody:
            return kNobody;
        case Outcome::noAnswer:
            return kNoAnswer;
    }
    return kFailed;
}

ControlResult ControlClient::ask(const std::string& command,
                                 bool json,
                                 const std::map<std::string, std::string>& parameters) const {
    std::string output;
    ControlResult result = ask(
        command, json, parameters, [&output](std::string_view piece, const auto& /*stillHere*/) {
            output += piece;
            return true;
        });
    result.output = std::move(output);
    return result;
}

ControlResult ControlClient::ask(const std::string& command,
                                 bool json,
                                 const std::map<std::string, std::string>& parameters,
                                 const Sink& sink) const {
    Connection connection{timeout_};
    if (const int problem = connection.connect(root_ / "control.sock"); problem != 0) {
        return unconnected(problem, root_);
    }
    const nlohmann::json request{
        {"command", command}, {"format", json ? "json" : "text"}, {"parameters", parameters}};
    connection.send(request.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    bool begun = false;
    while (const auto line = connection.line()) {
        const nlohmann::json answer = nlohmann::json::parse(*line, nullptr, false);
        if (!answer.is_object()) { return {Outcome::refused, {}, "the answer makes no sense"}; }
        begun = true;
        if (answer.contains("output") && answer["output"].is_string()) {
            const auto& piece = answer["output"].get_ref<const std::string&>();
            const bool more = sink(piece, [&connection] { connection.stillHere(); });
            if (!more) { return {Outcome::answered, {}, {}}; }
        }
        if (!answer.contains("end")) { continue; }
        const auto error = answer.find("error");
        if (error == answer.end()) { return {Outcome::answered, {}, {}}; }
        return {Outcome::refused, {}, error->is_string() ? error->get<std::string>() : ""};
    }
    const std::string who = "the agent in " + root_.string();
    if (connection.gone()) {
        return {Outcome::noAnswer,
                {},
                who + " ended the connection before it answered" + (begun ? " in full" : "")};
    }
    const std::string time = std::to_string(timeout_.count()) + " ms: it hangs";
    return {
        Outcome::noAnswer,
        {},
        who +
            (begun ? " fell silent in the middle of its answer, for " : " did not answer within ") +
            time};
}

}  // namespace Pel::Cli
