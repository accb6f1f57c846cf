#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>

namespace TestSupport {

/// A TCP port of 127.0.0.1 that is taken, and behind which nobody works: connections are refused until
/// listen(), and from then on taken by the kernel alone. Free again when this goes.
class LoopbackPort {
public:
    LoopbackPort() : fd_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)} {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        EXPECT_EQ(::bind(fd_, reinterpret_cast<const sockaddr*>(&address_), size), 0);
        EXPECT_EQ(::getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &size), 0);
    }
    LoopbackPort(const LoopbackPort&) = delete;
    LoopbackPort& operator=(const LoopbackPort&) = delete;
    ~LoopbackPort() { ::close(fd_); }

    void listen(int backlog) const { EXPECT_EQ(::listen(fd_, backlog), 0); }
    std::uint16_t port() const { return ntohs(address_.sin_port); }
    /// "127.0.0.1:PORT"
    std::string text() const { return "127.0.0.1:" + std::to_string(port()); }

private:
    int fd_;
    sockaddr_in address_{};
};

}  // namespace TestSupport
