#include "platform/Gale/Wire/MessageReader.h"

#include <algorithm>
#include <string>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {

std::span<const std::byte> MessageReader::fillPrefix(std::span<const std::byte> bytes) {
    const std::size_t n = std::min(kPrefixBytes - prefixBytes_, bytes.size());
    std::copy_n(bytes.begin(), n, &prefix_[prefixBytes_]);
    prefixBytes_ += n;
    return bytes.subspan(n);
}

std::optional<Status> MessageReader::takePrefix() {
    // Heads with another encoding than identity are refused, so a compressed message is a breach.
    if (prefix_[0] != std::byte{0}) {
        return Status{Code::Internal, "compressed message without a known grpc-encoding"};
    }
    length_ = 0;
    for (std::size_t i = 1; i < kPrefixBytes; ++i) {
        length_ = (length_ << 8U) | std::to_integer<std::size_t>(prefix_[i]);
    }
    if (length_ <= maxMessage_) { return std::nullopt; }
    return Status{Code::ResourceExhausted,
                  "received message of " + std::to_string(length_) + " bytes, the limit is " +
                      std::to_string(maxMessage_)};
}

std::optional<Status> MessageReader::feed(std::span<const std::byte> bytes, Deliver deliver) {
    while (!bytes.empty()) {
        if (prefixBytes_ < kPrefixBytes) {
            bytes = fillPrefix(bytes);
            if (prefixBytes_ < kPrefixBytes) { return std::nullopt; }
            if (auto status = takePrefix()) { return status; }
        }
        const std::size_t missing = length_ - partial_.size();
        const auto piece = bytes.first(std::min(missing, bytes.size()));
        bytes = bytes.subspan(piece.size());
        if (piece.size() < missing) {
            partial_.insert(partial_.end(), piece.begin(), piece.end());
            return std::nullopt;
        }
        prefixBytes_ = 0;
        if (partial_.empty()) {
            deliver(piece);
        } else {
            partial_.insert(partial_.end(), piece.begin(), piece.end());
            deliver(partial_);
            decltype(partial_){}.swap(partial_);  // "= {}" would keep the room
        }
    }
    return std::nullopt;
}

std::optional<Status> MessageReader::end() const {
    if (prefixBytes_ == 0) { return std::nullopt; }
    return Status{Code::Internal, "the request ended inside a message"};
}

}  // namespace Gale::Wire
