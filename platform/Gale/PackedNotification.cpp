#include "platform/Gale/PackedNotification.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"

#include <algorithm>
#include <cstring>

namespace Gale {

using namespace WireFields;

namespace {

constexpr std::size_t kSizeAt = PackedNotification::kStampBytes;
constexpr std::size_t kPiecesAt = kSizeAt + sizeof(std::uint32_t);
constexpr std::size_t kMostInPiece = 255;

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

std::uint64_t stampOf(std::string_view packed) {
    return load<std::uint64_t>(packed.data());
}

}  // namespace

void PackedNotification::clear() {
    bytes_.assign(kPiecesAt + 1, '\0');  // and an empty piece
    run_ = kPiecesAt;
    size_ = 0;
}

void PackedNotification::stampIs(std::int64_t nanoseconds) {
    store(bytes_.data(), nanoseconds);
}

void PackedNotification::append(std::string_view bytes) {
    grown(bytes.size());
    while (true) {
        const auto held = static_cast<unsigned char>(bytes_[run_]);
        const std::size_t taken = std::min(bytes.size(), kMostInPiece - held);
        bytes_.append(bytes.substr(0, taken));
        bytes_[run_] = static_cast<char>(held + taken);
        bytes.remove_prefix(taken);
        if (bytes.empty()) { return; }
        bytes_.append(sizeof(Segment::number) + 1, '\0');  // no segment; the next piece
        run_ = bytes_.size() - 1;
    }
}

void PackedNotification::append(const Segment& segment) {
    if (segment.number == 0) {
        append(segment.bytes);
        return;
    }
    grown(segment.bytes.size());
    const std::size_t at = bytes_.size();
    bytes_.append(sizeof segment.number + 1, '\0');
    store(bytes_.data() + at, segment.number);
    run_ = bytes_.size() - 1;
}

void PackedNotification::grown(std::size_t bytes) {
    size_ += static_cast<std::uint32_t>(bytes);
    store(bytes_.data() + kSizeAt, size_);
}

std::size_t PackedNotification::unpackedSize(std::string_view packed) {
    return 1 + varintSize(stampOf(packed)) + load<std::uint32_t>(packed.data() + kSizeAt);
}

void PackedNotification::unpack(std::string_view packed, std::span<char> to) {
    char* out = to.data();
    *out++ = varintTag(Fields::Notification::timestamp);
    out += protozero::write_varint(out, stampOf(packed));
    const char* from = packed.data() + kPiecesAt;
    const char* const end = packed.data() + packed.size();
    const auto put = [&out](const char* bytes, std::size_t size) {
        std::memcpy(out, bytes, size);
        out += size;
    };
    while (from != end) {
        const auto size = static_cast<unsigned char>(*from++);
        put(from, size);
        from += size;
        if (from == end) { return; }
        const std::string_view segment = Segments::at(load<std::uint16_t>(from));
        put(segment.data(), segment.size());
        from += sizeof(std::uint16_t);
    }
}

void PackedNotification::unpack(std::string_view packed, std::string& to) {
    to.resize(unpackedSize(packed));
    unpack(packed, std::span{to});
}

}  // namespace Gale
