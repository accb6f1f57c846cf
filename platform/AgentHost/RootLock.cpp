#include "platform/AgentHost/RootLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace AgentHost {
namespace {

std::string reason() {
    return std::generic_category().message(errno);
}

/// The process id that the holder wrote into the file; digits only, whatever else is in it.
std::string holder(int fd) {
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

}  // namespace

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
        const std::string text = errno == EWOULDBLOCK ? "held by " + holder(fd_) : reason();
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
