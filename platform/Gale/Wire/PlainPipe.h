#pragma once

#include "platform/Gale/Wire/Pipe.h"

namespace Gale::Wire {

/// A TCP socket as it is.
class PlainPipe final : public Pipe {
public:
    /// Owns `socket`, which is connected and non-blocking.
    explicit PlainPipe(int socket) : socket_{socket} {}
    ~PlainPipe() override;

    int descriptor() const override { return socket_; }
    Outcome read(std::span<std::byte> into) override;
    Outcome write(std::span<const std::byte> from) override;
    void shutdownWrite() override;

private:
    int socket_;
};

}  // namespace Gale::Wire
