#include "platform/AgentHost/RootLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace AgentHost {
namespace {

std::string reason() {
    return std::generic_category().message(errno);
}

/// The process id that the holder wrote into the file; digits only, whatever else is in it.
std::string writtenHolder(int fd) {
    std::array<char, 16> text{};
    const ssize_t size = ::pread(fd, text.data(), text.size(), 0);
    std::string digits;
    for (ssize_t i = 0; i < size && text.at(static_cast<std::size_t>(i)) >= '0' &&
                        text.at(static_cast<std::size_t>(i)) <= '9';
         ++i) {
        digits += text.at(static_cast<std::size_t>(i));
    }
    return digits.empty() ? "another process" : "process " + digits;
}

/// Whether a line of /proc/locks is a lock of this file, and of which process:
///     1: FLOCK  ADVISORY  WRITE 4711 00:1b:1234 0 EOF
pid_t lockOf(const std::string& line, const struct stat& file) {
    int process = 0;
    unsigned major = 0;
    unsigned minor = 0;
    unsigned long inode = 0;
    const int found = std::sscanf(
        line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%lu", &process, &major, &minor, &inode);
    const bool same = found == 4 && major == ::major(file.st_dev) &&
                      minor == ::minor(file.st_dev) && inode == file.st_ino;
    return same ? process : 0;
}

/// The letter of a process's state, see proc(5): it comes after the name, which may hold anything.
char stateOf(pid_t process) {
    std::ifstream file{"/proc/" + std::to_string(process) + "/stat"};
    std::string line;
    std::getline(file, line);
    const std::size_t name = line.rfind(") ");
    return name != std::string::npos && name + 2 < line.size() ? line[name + 2] : '?';
}

}  // namespace

std::optional<RootLock::Holder> RootLock::holder(const std::filesystem::path& directory,
                                                 const std::string& name) {
    struct stat status {};
    if (::stat((directory / name).c_str(), &status) != 0) {
        return errno == ENOENT ? std::optional{Holder{}} : std::nullopt;
    }
    std::ifstream locks{"/proc/locks"};
    if (!locks) { return std::nullopt; }
    for (std::string line; std::getline(locks, line);) {
        if (const pid_t process = lockOf(line, status); process > 0) {
            const char state = stateOf(process);
            return Holder{process, state == 'T' || state == 't'};
        }
    }
    return Holder{};
}

RootLock::~RootLock() {
    if (fd_ >= 0) { ::close(fd_); }
}

std::string RootLock::take(const std::filesystem::path& directory, const std::string& name) {
    std::error_code problem;
    std::filesystem::create_directories(directory, problem);
    if (problem) { return "directory " + directory.string() + ": " + problem.message(); }
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        return "directory " + directory.string() + ": " + reason();
    }
    if (::geteuid() == 0 && status.st_uid != 0) {
        return "directory " + directory.string() + ": belongs to user " +
               std::to_string(status.st_uid) + ", not to root";
    }
    const std::filesystem::path file = directory / name;
    fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
    if (fd_ < 0) { return file.string() + ": " + reason(); }
    if (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const std::string text = errno == EWOULDBLOCK ? "held by " + writtenHolder(fd_) : reason();
        ::close(fd_);
        fd_ = -1;
        return file.string() + ": " + text;
    }
    // Only for the message of the next one that comes: a failure to write costs nothing.
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd_, 0) != 0 ||
        ::pwrite(fd_, pid.data(), pid.size(), 0) != static_cast<ssize_t>(pid.size())) {
        errno = 0;
    }
    return {};
}

}  // namespace AgentHost
