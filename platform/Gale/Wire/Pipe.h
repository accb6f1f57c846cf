#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Gale::Wire {

/// The byte stream under one HTTP/2 connection; what may want handshakes, records or keys stays
/// behind it. Non-blocking; I/O thread.
class Pipe {
public:
    enum class Result : std::uint8_t { Progress, Blocked, Dead };
    struct Outcome {
        Result result;
        std::size_t bytes;  ///< with Progress: at least 1
    };

    Pipe() = default;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    virtual ~Pipe() = default;

    /// For polling only; readable and writable events mean: try again.
    virtual int descriptor() const = 0;
    virtual Outcome read(std::span<std::byte> into) = 0;
    virtual Outcome write(std::span<const std::byte> from) = 0;
    /// No more writes; the client sees the end after what was written.
    virtual void shutdownWrite() = 0;
};

}  // namespace Gale::Wire
