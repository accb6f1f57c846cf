#include "platform/Gale/PackedNotification.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"
#include "platform/Vel/Assert.h"

#include <algorithm>
#include <cstring>

namespace Gale {

using WireFields::varintTag;

namespace {

constexpr std::size_t kSizeAt = PackedNotification::kStampBytes;
constexpr std::size_t kPiecesAt = kSizeAt + sizeof(std::uint32_t);
constexpr std::size_t kMostInPiece = 255;
constexpr std::size_t kUsual = 512;

template <class Number>
Number load(const char* from) {
    Number number;
    std::memcpy(&number, from, sizeof number);
    return number;
}

template <class Number>
void store(char* to, Number number) {
    std::memcpy(to, &number, sizeof number);
}

/// A few bytes: a general copy takes longer to begin than these to copy.
void copyFew(char* to, const char* from, std::size_t size) {
    const auto both = [&]<class Block>(Block /*of this size*/) {
        const auto first = load<Block>(from);
        const auto last = load<Block>(from + size - sizeof(Block));
        store(to, first);
        store(to + size - sizeof(Block), last);
    };
    if (size > 2 * sizeof(std::uint64_t)) {
        std::memcpy(to, from, size);
    } else if (size >= sizeof(std::uint64_t)) {
        both(std::uint64_t{});
    } else if (size >= sizeof(std::uint32_t)) {
        both(std::uint32_t{});
    } else if (size >= sizeof(std::uint16_t)) {
        both(std::uint16_t{});
    } else if (size > 0) {
        *to = *from;
    }
}

/// Copies pieces one behind the other. Most are short: where there is room for it they are copied
/// with what follows them, because copies of a fixed size take a fraction of the time.
class Copier {
public:
    explicit Copier(std::span<char> to) : to_(to.data()), end_(to.data() + to.size()) {}

    /// `readable` bytes there may be read, `size` or more.
    void put(const char* bytes, std::size_t size, std::size_t readable) {
        constexpr std::size_t kBlock = Segments::kReadable;
        const std::size_t blocks = (size + kBlock - 1) / kBlock * kBlock;
        if (blocks <= readable && blocks <= static_cast<std::size_t>(end_ - to_)) {
            for (std::size_t at = 0; at < size; at += kBlock) {
                std::memcpy(to_ + at, bytes + at, kBlock);
            }
        } else {
            std::memcpy(to_, bytes, size);
        }
        to_ += size;
    }

private:
    char* to_;
    char* const end_;
};

}  // namespace

void PackedNotification::clear() {
    end_ = 0;
    std::memset(grow(kPiecesAt + 1), 0, kPiecesAt + 1);  // and an empty piece
    run_ = kPiecesAt;
    size_ = 0;
    stampIs(0);
}

void PackedNotification::stampIs(std::int64_t nanoseconds) {
    VEL_ASSERT(nanoseconds >= 0 && nanoseconds <= (std::int64_t{1} << 62));
    buffer_[0] = varintTag(Fields::Notification::timestamp);
    auto rest = static_cast<std::uint64_t>(nanoseconds);
    for (std::size_t i = 1; i < kStampBytes; ++i, rest >>= 7U) {
        const bool more = i + 1 < kStampBytes;
        buffer_[i] = static_cast<char>((rest & 0x7FU) | (more ? 0x80U : 0U));
    }
}

void PackedNotification::append(std::string_view bytes) {
    unpackedGrown(bytes.size());
    while (true) {
        const auto held = static_cast<unsigned char>(buffer_[run_]);
        const std::size_t taken = std::min(bytes.size(), kMostInPiece - held);
        copyFew(grow(taken), bytes.data(), taken);
        buffer_[run_] = static_cast<char>(held + taken);
        bytes.remove_prefix(taken);
        if (bytes.empty()) { return; }
        beginPiece(0);  // no segment
    }
}

void PackedNotification::append(const Segment& segment) {
    if (segment.number == 0) {
        append(segment.bytes);
        return;
    }
    unpackedGrown(segment.bytes.size());
    beginPiece(segment.number);
}

/// Where so many bytes more are to be written.
char* PackedNotification::grow(std::size_t bytes) {
    const std::size_t at = end_;
    end_ += bytes;
    if (end_ > buffer_.size()) { buffer_.resize(std::max(2 * end_, kUsual)); }
    return buffer_.data() + at;
}

void PackedNotification::unpackedGrown(std::size_t bytes) {
    size_ += static_cast<std::uint32_t>(bytes);
    store(buffer_.data() + kSizeAt, size_);
}

/// Behind the number of the segment that ends the last one.
void PackedNotification::beginPiece(std::uint16_t segment) {
    char* const at = grow(sizeof segment + 1);
    store(at, segment);
    at[sizeof segment] = 0;
    run_ = end_ - 1;
}

std::int64_t PackedNotification::stamp(std::string_view packed) {
    VEL_ASSERT(packed.size() >= kStampBytes);
    std::uint64_t stamp = 0;
    for (std::size_t i = kStampBytes; i-- > 1;) {
        stamp = stamp << 7U | (static_cast<unsigned char>(packed[i]) & 0x7FU);
    }
    return static_cast<std::int64_t>(stamp);
}

std::size_t PackedNotification::unpackedSize(std::string_view packed) {
    return kStampBytes + load<std::uint32_t>(packed.data() + kSizeAt);
}

void PackedNotification::unpack(std::string_view packed, std::span<char> to) {
    std::memcpy(to.data(), packed.data(), kStampBytes);
    Copier copier{to.subspan(kStampBytes)};
    const std::span<const std::string_view> segments = Segments::byNumber();
    const char* from = packed.data() + kPiecesAt;
    const char* const end = packed.data() + packed.size();
    while (from != end) {
        const auto size = static_cast<unsigned char>(*from++);
        copier.put(from, size, static_cast<std::size_t>(end - from));
        from += size;
        if (from == end) { return; }
        const std::string_view segment = segments[load<std::uint16_t>(from)];
        copier.put(segment.data(), segment.size(), segment.size() + Segments::kReadable);
        from += sizeof(Segment::number);
    }
}

void PackedNotification::unpack(std::string_view packed, std::string& to) {
    to.resize(unpackedSize(packed));
    unpack(packed, std::span{to});
}

}  // namespace Gale
