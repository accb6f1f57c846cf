#include "apps/cli/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

namespace Pel::Cli {
namespace {

std::string inWords(int status) {
    if (WIFEXITED(status)) { return "ended with " + std::to_string(WEXITSTATUS(status)); }
    return std::string{"was ended by a signal: "} + ::strsignal(WTERMSIG(status));
}

/// In the child: becomes the program, or tells the parent why not. Only calls that are safe after a
/// fork.
[[noreturn]] void become(char* const* arguments, pid_t parent, int report) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) { ::_exit(1); }  // died before the line above
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // A group of its own: Ctrl-C goes to the parent, which ends its children in order.
    ::setpgid(0, 0);
    ::execv(arguments[0], arguments);
    const int problem = errno;
    [[maybe_unused]] const ssize_t size = ::write(report, &problem, sizeof problem);
    ::_exit(127);
}

}  // namespace

std::string ChildProcess::start(const std::vector<std::string>& arguments) {
    std::vector<std::string> owned{arguments};
    std::vector<char*> pointers;
    pointers.reserve(owned.size() + 1);
    for (std::string& argument : owned) { pointers.push_back(argument.data()); }
    pointers.push_back(nullptr);
    std::array<int, 2> report{};
    if (::pipe2(report.data(), O_CLOEXEC) != 0) { return std::generic_category().message(errno); }
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) { become(pointers.data(), parent, report[1]); }
    ::close(report[1]);
    int problem = pid_ < 0 ? errno : 0;
    const ssize_t size = pid_ < 0 ? 0 : ::read(report[0], &problem, sizeof problem);
    ::close(report[0]);
    if (size > 0 && pid_ > 0) {
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    return problem == 0 ? "" : arguments.at(0) + ": " + std::generic_category().message(problem);
}

std::optional<std::string> ChildProcess::ended() {
    if (pid_ > 0) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) != pid_) { return std::nullopt; }
        pid_ = -1;
        how_ = inWords(status);
    }
    return how_;
}

void ChildProcess::askToEnd() const {
    if (pid_ > 0) { ::kill(pid_, SIGTERM); }
}

std::string ChildProcess::end(std::chrono::milliseconds grace) {
    if (const auto how = ended()) { return *how; }
    askToEnd();
    const int handle = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    pollfd waiting{handle, POLLIN, 0};
    ::poll(&waiting, 1, static_cast<int>(grace.count()));
    if (handle >= 0) { ::close(handle); }
    if (const auto how = ended()) { return *how; }
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
    how_ = "did not end when asked to and was killed";
    return how_;
}

}  // namespace Pel::Cli
