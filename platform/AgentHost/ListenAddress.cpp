#include "platform/AgentHost/ListenAddress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>

namespace AgentHost {
namespace {

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
};

std::optional<SocketAddress> socketAddress(const ListenAddress& from) {
    SocketAddress to;
    sockaddr_in four{};
    sockaddr_in6 six{};
    if (::inet_pton(AF_INET, from.address.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = htons(from.port);
        std::memcpy(&to.storage, &four, sizeof four);
        to.size = sizeof four;
        return to;
    }
    if (::inet_pton(AF_INET6, from.address.c_str(), &six.sin6_addr) == 1) {
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(from.port);
        std::memcpy(&to.storage, &six, sizeof six);
        to.size = sizeof six;
        return to;
    }
    return std::nullopt;
}

}  // namespace

std::optional<ListenAddress> ListenAddress::parse(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) { return std::nullopt; }
    ListenAddress result;
    std::string_view address = text.substr(0, colon);
    const bool bracketed = address.size() >= 2 && address.front() == '[' && address.back() == ']';
    if (bracketed) { address = address.substr(1, address.size() - 2); }
    if (!bracketed && address.find(':') != std::string_view::npos) { return std::nullopt; }
    result.address = address;
    const std::string_view port = text.substr(colon + 1);
    const auto [end, problem] =
        std::from_chars(port.data(), port.data() + port.size(), result.port);
    if (problem != std::errc{} || end != port.data() + port.size()) { return std::nullopt; }
    return socketAddress(result) ? std::optional{result} : std::nullopt;
}

std::string ListenAddress::problem(const std::string& text) {
    if (parse(text)) { return {}; }
    return "'" + text +
           "' is no numeric address with a port (0 to 65535), as in 127.0.0.1:9339 or [::1]:9339";
}

std::string ListenAddress::text() const {
    const bool six = address.find(':') != std::string::npos;
    return (six ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

ListenAddress ListenAddress::reachable() const {
    if (address == "0.0.0.0") { return {"127.0.0.1", port}; }
    if (address == "::") { return {"::1", port}; }
    return *this;
}

bool ListenAddress::loopback() const {
    return address.starts_with("127.") || address == "::1";
}

bool ListenAddress::takesConnections() const {
    constexpr int kWaitMs = 250;
    const auto to = socketAddress(*this);
    const int fd =
        to ? ::socket(to->storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0) : -1;
    if (fd < 0) { return false; }
    bool taken = ::connect(fd, reinterpret_cast<const sockaddr*>(&to->storage), to->size) == 0;
    if (!taken && errno == EINPROGRESS) {
        pollfd waiting{fd, POLLOUT, 0};
        int problem = 0;
        socklen_t size = sizeof problem;
        if (::poll(&waiting, 1, kWaitMs) == 1) {
            taken = ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &problem, &size) == 0 && problem == 0;
        } else {
            taken = loopback();  // nobody else would have the kernel wait there
        }
    }
    ::close(fd);
    return taken;
}

std::string ListenAddress::unusable() const {
    const auto to = socketAddress(*this);
    if (!to) { return text() + " is no numeric address"; }
    const int fd = ::socket(to->storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) { return text() + ": " + std::generic_category().message(errno); }
    const int yes = 1;
    // As the server does: a connection that is being forgotten is no reason against listening.
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    std::string reason;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&to->storage), to->size) != 0 ||
        ::listen(fd, 1) != 0) {
        reason = errno == EADDRINUSE
                     ? text() + " is in use by another process; choose another with --listen"
                     : text() + ": " + std::generic_category().message(errno);
    }
    ::close(fd);
    return reason;
}

}  // namespace AgentHost
