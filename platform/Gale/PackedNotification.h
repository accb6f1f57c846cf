#pragma once

#include "platform/Gale/Segments.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Gale {

/// A gNMI Notification in the form in which the journal keeps it: what many messages have in common,
/// paths above all, stands there as the numbers of segments. It is put back when the message is
/// sent, into the buffer that goes to the wire.
///
///   stamp    10 bytes: the message's first field as it stands on the wire. A stamp of before 1973
///            is written in as many bytes as those of our time, which protobuf allows
///   size     4 bytes: of all the rest once it is unpacked
///   pieces   each: 1 byte n, n bytes as they are, 2 bytes number of a segment; the last may end
///            after its n bytes
///
/// Numbers are in the machine's byte order. The same calls give the same bytes.
class PackedNotification final {
public:
    /// Bytes at the front that hold the stamp.
    static constexpr std::size_t kStampBytes = 10;

    PackedNotification() { clear(); }

    /// Stamp 0 and nothing else.
    void clear();
    /// Since the epoch, 0 to 2^62.
    void stampIs(std::int64_t nanoseconds);
    void append(std::string_view bytes);
    void append(const Segment& segment);

    /// Valid until the next change.
    std::string_view bytes() const { return {buffer_.data(), end_}; }

    // Of bytes() of such an object, or a copy of them. Any thread.

    static std::int64_t stamp(std::string_view packed);
    static std::size_t unpackedSize(std::string_view packed);
    /// `to` has room for unpackedSize() bytes at least; what is behind them may be overwritten.
    static void unpack(std::string_view packed, std::span<char> to);
    /// In place of what `to` holds.
    static void unpack(std::string_view packed, std::string& to);

private:
    char* grow(std::size_t bytes);
    void unpackedGrown(std::size_t bytes);
    void beginPiece(std::uint16_t segment);

    std::string buffer_;      // longer than what it holds: a message is many small appends
    std::size_t end_ = 0;     // of what it holds
    std::size_t run_ = 0;     // where the last piece begins
    std::uint32_t size_ = 0;  // as it stands in the buffer
};

}  // namespace Gale
