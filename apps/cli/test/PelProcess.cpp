#include "apps/cli/test/PelProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>

namespace Pel::Cli {
namespace {

constexpr int kPatience = 120'000;  // ms

/// Whether the process has blocked a signal, as the kernel sees it.
bool blocks(pid_t pid, int signal) {
    std::ifstream status{"/proc/" + std::to_string(pid) + "/status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk:")) {
            return (std::stoull(line.substr(7), nullptr, 16) >> (signal - 1) & 1U) != 0;
        }
    }
    return false;
}

}  // namespace

PelProcess::PelProcess(std::vector<std::string> arguments,
                       Output output,
                       std::vector<std::string> environment) {
    arguments.insert(arguments.begin(), PEL_TEST_PROGRAM);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) { pointers.push_back(argument.data()); }
    pointers.push_back(nullptr);
    std::array<int, 2> ends{-1, -1};
    if (output == Output::terminal) {
        ::openpty(&ends[0], &ends[1], nullptr, nullptr, nullptr);
        ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    } else {
        [[maybe_unused]] const int made = ::pipe2(ends.data(), O_CLOEXEC);
    }
    pid_ = ::fork();
    if (pid_ == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
        for (std::string& variable : environment) { ::putenv(variable.data()); }
        ::execv(pointers[0], pointers.data());
        ::_exit(127);
    }
    ::close(ends[1]);
    fd_ = ends[0];
}

PelProcess::~PelProcess() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    stopReading();
}

bool PelProcess::readMore() {
    pollfd waiting{fd_, POLLIN, 0};
    if (::poll(&waiting, 1, kPatience) != 1) { return false; }
    std::array<char, 65536> piece{};
    const ssize_t size = ::read(fd_, piece.data(), piece.size());
    if (size <= 0) { return false; }
    input_.append(piece.data(), static_cast<std::size_t>(size));
    return true;
}

std::string PelProcess::line() {
    std::size_t end = input_.find('\n');
    while (end == std::string::npos) {
        if (!readMore()) { return "(no line) " + input_; }
        end = input_.find('\n');
    }
    std::string result = input_.substr(0, end);
    input_.erase(0, end + 1);
    if (result.ends_with('\r')) { result.pop_back(); }
    return result;
}

std::string PelProcess::rest() {
    while (readMore()) {}
    return std::exchange(input_, {});
}

void PelProcess::stopReading() {
    if (fd_ >= 0) { ::close(std::exchange(fd_, -1)); }
}

void PelProcess::interrupt() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds{kPatience};
    while (!blocks(pid_, SIGINT) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    interruptNow();
}

void PelProcess::interruptNow() const {
    ::kill(pid_, SIGINT);
}

void PelProcess::pause() {
    ::kill(pid_, SIGSTOP);
    ::waitpid(pid_, nullptr, WUNTRACED);
}

void PelProcess::goOn() const {
    ::kill(pid_, SIGCONT);
}

int PelProcess::end() {
    const int handle = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    pollfd waiting{handle, POLLIN, 0};
    const bool ended = ::poll(&waiting, 1, kPatience) == 1;
    ::close(handle);
    if (!ended) { return -1000; }
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace Pel::Cli
