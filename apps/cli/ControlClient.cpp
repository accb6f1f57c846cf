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
#include <optional>
#include <system_error>

#include "apps/cli/ExitCode.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/AgentHost/RootLock.h"

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

    /// 0 or the error number. EAGAIN: the host's queue is full, as it accepts nobody.
    int connect(const std::filesystem::path& path) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.native().size() >= sizeof address.sun_path) { return ENAMETOOLONG; }
        std::memcpy(address.sun_path, path.c_str(), path.native().size());
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

constexpr std::chrono::milliseconds kTryAgain{20};

using Holder = AgentHost::RootLock::Holder;

/// The agent of a root directory, as its lock tells; nobody when that cannot be told.
Holder agentOf(const std::filesystem::path& root) {
    return AgentHost::RootLock::holder(root, AgentHost::HostConfig::kAgentLock).value_or(Holder{});
}

/// Nobody listens: there is no socket, or a dead agent has left it.
bool nobodyListens(int problem) {
    return problem == ENOENT || problem == ECONNREFUSED;
}

/// Connects as soon as it can be had: an agent may be just starting, or have many clients.
int connectInTime(const Connection& connection,
                  const std::filesystem::path& root,
                  std::chrono::milliseconds timeout) {
    const auto deadline = Clock::now() + timeout;
    const std::filesystem::path socket = root / "control.sock";
    while (true) {
        const int problem = connection.connect(socket);
        const bool passing =
            problem == EAGAIN || (nobodyListens(problem) && agentOf(root).process != 0);
        if (!passing || Clock::now() + kTryAgain > deadline) { return problem; }
        ::poll(nullptr, 0, static_cast<int>(kTryAgain.count()));
    }
}

/// Why an agent that is there does not answer.
std::string whyNot(const Holder& agent) {
    const std::string process = "process " + std::to_string(agent.process);
    if (agent.stopped) {
        return ": " + process + " is stopped; kill -CONT " + std::to_string(agent.process) +
               " lets it go on";
    }
    return agent.process == 0 ? ": it hangs" : ": it hangs (" + process + ")";
}

ControlResult unconnected(int problem,
                          const std::filesystem::path& root,
                          std::chrono::milliseconds timeout) {
    const std::string where = root.string();
    const std::string time = " for " + std::to_string(timeout.count()) + " ms";
    const Holder agent = agentOf(root);
    if (problem == EAGAIN) {
        return {Outcome::noAnswer,
                {},
                "the agent in " + where + " takes no requests" + time + whyNot(agent)};
    }
    if (nobodyListens(problem) && agent.process != 0) {
        const std::string state =
            agent.stopped ? whyNot(agent)
                          : ": process " + std::to_string(agent.process) + " starts or ends";
        return {Outcome::noAnswer, {}, "the agent in " + where + " does not listen" + time + state};
    }
    if (nobodyListens(problem)) {
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
    if (const int problem = connectInTime(connection, root_, timeout_); problem != 0) {
        return unconnected(problem, root_, timeout_);
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
    const std::string time = std::to_string(timeout_.count()) + " ms" + whyNot(agentOf(root_));
    return {
        Outcome::noAnswer,
        {},
        who +
            (begun ? " fell silent in the middle of its answer, for " : " did not answer within ") +
            time};
}

}  // namespace Pel::Cli
