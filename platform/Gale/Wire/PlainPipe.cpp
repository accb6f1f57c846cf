#include "platform/Gale/Wire/PlainPipe.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace Gale::Wire {
namespace {

Pipe::Outcome failure() {
    const bool later = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
    return {later ? Pipe::Result::Blocked : Pipe::Result::Dead, 0};
}

}  // namespace

PlainPipe::~PlainPipe() {
    ::close(socket_);
}

Pipe::Outcome PlainPipe::read(std::span<std::byte> into) {
    const ssize_t n = ::recv(socket_, into.data(), into.size(), 0);
    if (n < 0) { return failure(); }
    if (n == 0) { return {Result::Dead, 0}; }
    return {Result::Progress, static_cast<std::size_t>(n)};
}

Pipe::Outcome PlainPipe::write(std::span<const std::byte> from) {
    const ssize_t n = ::send(socket_, from.data(), from.size(), MSG_NOSIGNAL);
    if (n < 0) { return failure(); }
    return {Result::Progress, static_cast<std::size_t>(n)};
}

void PlainPipe::shutdownWrite() {
    ::shutdown(socket_, SHUT_WR);
}

}  // namespace Gale::Wire
