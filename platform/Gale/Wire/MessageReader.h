#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "absl/functional/function_ref.h"
#include "platform/Gale/Wire/Status.h"

namespace Gale::Wire {

/// Cuts the bytes of one request into messages. Frames and messages need not be aligned; a message
/// that lies within one piece is delivered without a copy. Pure.
class MessageReader {
public:
    using Deliver = absl::FunctionRef<void(std::span<const std::byte>)>;

    explicit MessageReader(std::size_t maxMessage) : maxMessage_{maxMessage} {}

    /// Delivers each message that `bytes` completes, in order. Answers why the call must end, or
    /// nothing. A message over the limit is refused by its prefix, before any of it is kept; room
    /// grows with the bytes that arrive, never with the length that a prefix claims.
    std::optional<Status> feed(std::span<const std::byte> bytes, Deliver deliver);
    /// The request is over: answers why the call must end if that is inside a message.
    std::optional<Status> end() const;
    /// Bytes held of an unfinished message.
    std::size_t buffered() const { return partial_.size(); }

private:
    std::optional<Status> takePrefix();
    std::span<const std::byte> fillPrefix(std::span<const std::byte> bytes);

    std::size_t maxMessage_;
    std::byte prefix_[5]{};
    std::size_t prefixBytes_ = 0;  // 5: inside a message
    std::size_t length_ = 0;       // of that message
    std::vector<std::byte> partial_;
};

}  // namespace Gale::Wire
