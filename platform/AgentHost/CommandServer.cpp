#include "platform/AgentHost/CommandServer.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <numeric>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/AgentHost/CommandSession.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("CommandServer");

namespace AgentHost {
namespace {

constexpr Kiln::TaskPriority kPriority = 5;
constexpr int kBacklog = 16;

std::string problem(const std::filesystem::path& path) {
    return "control socket " + path.string() + ": " + std::generic_category().message(errno);
}

/// Takes away what a dead process left there. False when something else is in the way.
bool clear(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) { return true; }
    return S_ISSOCK(status.st_mode) && ::unlink(path.c_str()) == 0;
}

/// As much as fits into a socket that nobody has written to yet: all of it.
void refuse(int client, std::string_view reason) {
    const std::string line = fmt::format("{{\"end\":true,\"error\":\"{}\"}}\n", reason);
    [[maybe_unused]] const auto sent = ::send(client, line.data(), line.size(), MSG_NOSIGNAL);
    ::close(client);
}

}  // namespace

CommandServer::CommandServer(Vel::Ref<Kiln::TaskScheduler> scheduler,
                             Vel::Ref<CmdRequestDirSm> commands)
    : CommandServer{std::move(scheduler), std::move(commands), Limits{}} {}

CommandServer::CommandServer(Vel::Ref<Kiln::TaskScheduler> scheduler,
                             Vel::Ref<CmdRequestDirSm> commands,
                             Limits limits)
    : scheduler_{std::move(scheduler)},
      commands_{std::move(commands)},
      limits_{limits},
      resume_{scheduler_, "ControlAccept", kPriority, [this] {
                  waitForClients();
                  return false;
              }} {}

CommandServer::~CommandServer() {
    sessions_.clear();
    watch_ = Kiln::FdWatch{};
    if (fd_ < 0) { return; }
    ::close(fd_);
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

std::string CommandServer::listen(const std::filesystem::path& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        return "control socket " + path.string() + ": the path is longer than " +
               std::to_string(sizeof address.sun_path - 1) + " bytes";
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) { return problem(path); }
    if (!clear(path)) {
        ::close(fd);
        return "control socket " + path.string() + ": something that is no socket is in its place";
    }
    // The owner and the group may ask; a umask could take that away, or give it to all.
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::chmod(path.c_str(), 0660) != 0 || ::listen(fd, kBacklog) != 0) {
        std::string text = problem(path);
        ::close(fd);
        return text;
    }
    fd_ = fd;
    path_ = path;
    waitForClients();
    return {};
}

std::size_t CommandServer::bufferedBytes() const {
    return std::accumulate(
        sessions_.begin(), sessions_.end(), std::size_t{0}, [](std::size_t sum, const auto& each) {
            return sum + each.second->bufferedBytes();
        });
}

void CommandServer::waitForClients() {
    watch_ = scheduler_->watchReadable(fd_, [this] { accept(); });
}

void CommandServer::accept() {
    const int client = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (client < 0) {
        if (errno != EMFILE && errno != ENFILE && errno != ENOMEM && errno != ENOBUFS) { return; }
        // The client stays in the queue and would wake us at once, again and again.
        TRACE5("no descriptor for a client of the control socket: {}", errno);
        watch_ = Kiln::FdWatch{};
        resume_.scheduleAfter(std::chrono::seconds{1});
        return;
    }
    if (sessions_.size() >= limits_.connections) {
        TRACE5("too many clients of the control socket: {}", sessions_.size());
        refuse(client, fmt::format("{} clients are being answered already", sessions_.size()));
        return;
    }
    const std::uint64_t id = nextId_++;
    sessions_.emplace(
        id, std::make_unique<CommandSession>(client, scheduler_, commands_, limits_, [this, id] {
            sessions_.erase(id);
        }));
}

}  // namespace AgentHost
