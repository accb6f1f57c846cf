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

/// A connection with a deadline for all that happens on it.
class Connection {
public:
    explicit Connection(Clock::time_point deadline)
        : deadline_{deadline},
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
    bool send(std::string_view bytes) const {
        while (!bytes.empty()) {
            if (!wait(POLLOUT)) { return false; }
            const ssize_t size = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (size < 0 && errno != EAGAIN) { return false; }
            if (size > 0) { bytes.remove_prefix(static_cast<std::size_t>(size)); }
        }
        return true;
    }
    /// The next line; nullopt when none came in time, or the other side went.
    std::optional<std::string> line() {
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
    Connection connection{Clock::now() + timeout_};
    if (const int problem = connection.connect(root_ / "control.sock"); problem != 0) {
        return unconnected(problem, root_);
    }
    const nlohmann::json request{
        {"command", command}, {"format", json ? "json" : "text"}, {"parameters", parameters}};
    connection.send(request.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    ControlResult result;
    while (const auto line = connection.line()) {
        const nlohmann::json answer = nlohmann::json::parse(*line, nullptr, false);
        if (!answer.is_object()) { return {Outcome::refused, {}, "the answer makes no sense"}; }
        if (answer.contains("output") && answer["output"].is_string()) {
            result.output += answer["output"].get<std::string>();
        }
        if (!answer.contains("end")) { continue; }
        const auto error = answer.find("error");
        result.error = error != answer.end() && error->is_string() ? error->get<std::string>() : "";
        result.outcome = error == answer.end() ? Outcome::answered : Outcome::refused;
        return result;
    }
    const std::string who = "the agent in " + root_.string();
    if (connection.gone()) {
        return {Outcome::noAnswer, {}, who + " ended the connection before it answered"};
    }
    return {Outcome::noAnswer,
            {},
            who + " did not answer within " + std::to_string(timeout_.count()) + " ms: it hangs"};
}

}  // namespace Pel::Cli
