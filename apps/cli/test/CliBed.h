#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Pel::Cli {

/// How the program ends that was called with these arguments; what it prints is in `output`.
inline int pel(const std::string& arguments, std::string& output) {
    const std::string command = std::string{PEL_TEST_PROGRAM} + " " + arguments;
    const std::string shell = "exec 2>&1; " + command;  // what the arguments redirect comes later
    FILE* const pipe = ::popen(("bash -c '" + shell + "'").c_str(), "r");
    output.clear();
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) {
        output += static_cast<char>(c);
    }
    return WEXITSTATUS(::pclose(pipe));
}

/// A control socket behind which nobody works: the kernel takes the connection, and that is all.
class HungHost {
public:
    explicit HungHost(const std::filesystem::path& root)
        : fd_{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = (root / "control.sock").string();
        std::memcpy(address.sun_path, path.c_str(), path.size());
        EXPECT_EQ(::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(fd_, 1), 0);
    }
    HungHost(const HungHost&) = delete;
    HungHost& operator=(const HungHost&) = delete;
    ~HungHost() { ::close(fd_); }
    int accept() const { return ::accept(fd_, nullptr, nullptr); }
    /// Answers the first client with these bytes, and goes.
    void answer(std::string_view bytes) const {
        const int client = accept();
        EXPECT_EQ(::send(client, bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
        ::close(client);
    }

private:
    int fd_;
};

/// Clients of a HungHost, as many as its queue takes.
class FullQueue {
public:
    explicit FullQueue(const std::filesystem::path& root) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = (root / "control.sock").string();
        std::memcpy(address.sun_path, path.c_str(), path.size());
        while (true) {
            const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                EXPECT_EQ(errno, EAGAIN);
                ::close(fd);
                return;
            }
            clients_.push_back(fd);
        }
    }
    FullQueue(const FullQueue&) = delete;
    FullQueue& operator=(const FullQueue&) = delete;
    ~FullQueue() {
        for (const int fd : clients_) { ::close(fd); }
    }
    std::size_t clients() const { return clients_.size(); }

private:
    std::vector<int> clients_;
};

}  // namespace Pel::Cli
