#include "platform/AgentHost/test/ControlPeer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>

namespace AgentHost {

ControlPeer::ControlPeer(const std::filesystem::path& socket) {
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, socket.c_str(), socket.native().size());
    connected_ = ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

std::size_t ControlPeer::send(std::string_view bytes) const {
    const ssize_t size = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
}

bool ControlPeer::receive() {
    std::array<char, 65536> piece{};
    while (true) {
        const ssize_t size = ::recv(fd_, piece.data(), piece.size(), 0);
        if (size < 0) { return errno != EAGAIN; }
        if (size == 0) { return true; }
        received_.append(piece.data(), static_cast<std::size_t>(size));
    }
}

std::size_t ControlPeer::receiveSome(std::size_t bytes) {
    std::array<char, 65536> piece{};
    const ssize_t size = ::recv(fd_, piece.data(), std::min(bytes, piece.size()), 0);
    if (size <= 0) { return 0; }
    received_.append(piece.data(), static_cast<std::size_t>(size));
    return static_cast<std::size_t>(size);
}

std::vector<std::string> ControlPeer::lines() const {
    std::vector<std::string> result;
    std::istringstream stream{received_};
    for (std::string line; std::getline(stream, line);) { result.push_back(line); }
    return result;
}

void ControlPeer::shutdown() const {
    ::shutdown(fd_, SHUT_WR);
}

void ControlPeer::close() {
    if (fd_ >= 0) { ::close(fd_); }
    fd_ = -1;
}

}  // namespace AgentHost
