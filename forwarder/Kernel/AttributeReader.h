#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "model/Net/IpGenAddr.h"

namespace Pel::Forwarder {

using Bytes = std::span<const std::byte>;

/// Reads a fixed-size value in host byte order; none when the bytes are too few.
template <class T>
std::optional<T> readValue(Bytes bytes, std::size_t offset = 0) {
    if (bytes.size() < offset || bytes.size() - offset < sizeof(T)) { return std::nullopt; }
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

/// None unless the bytes are as many as an address has.
inline Nexo::IpGenAddr addressOf(Bytes bytes) {
    return Nexo::IpGenAddr{{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}};
}

/// One netlink attribute: its type without the nesting bits, and its payload.
struct Attribute {
    std::uint16_t type = 0;
    Bytes payload;
};

/// Walks the attributes of a message or of a nest. Trusts no length: the walk ends at the first
/// attribute that does not fit, and `broken` says so.
class AttributeReader {
public:
    explicit AttributeReader(Bytes bytes) : rest_{bytes} {}

    /// None at the end.
    std::optional<Attribute> next();
    bool broken() const { return broken_; }

private:
    Bytes rest_;
    bool broken_ = false;
};

/// The attributes of one message by type, collected before any is interpreted: senders order them
/// as they like. The first of a type counts. Types beyond the table's end are not ours.
class AttributeTable {
public:
    static constexpr std::size_t kTypes = 64;

    explicit AttributeTable(Bytes bytes);

    /// Whether some attribute did not fit into the message.
    bool broken() const { return broken_; }
    bool has(std::uint16_t type) const { return type < kTypes && present_[type]; }
    /// Empty when absent.
    Bytes operator[](std::uint16_t type) const { return type < kTypes ? payloads_[type] : Bytes{}; }

    template <class T>
    T value(std::uint16_t type, T absent) const {
        return readValue<T>((*this)[type]).value_or(absent);
    }
    /// A number of whatever width it came in: 1, 2, 4 or 8 bytes; 0 when absent.
    std::uint64_t number(std::uint16_t type) const;
    /// None when absent or of another length than an address has.
    Nexo::IpGenAddr address(std::uint16_t type) const { return addressOf((*this)[type]); }

private:
    std::array<Bytes, kTypes> payloads_;
    std::array<bool, kTypes> present_{};
    bool broken_ = false;
};

}  // namespace Pel::Forwarder
