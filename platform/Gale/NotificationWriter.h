#pragma once

#include "platform/Gale/PathTemplate.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace Gale {

/// Writes one gNMI Notification as its fields stand on the wire, PROTO encoding. Order of calls:
/// prefix, leaves, leaf deletions and atomic, or else deletion.
class NotificationWriter final {
public:
    using Keys = PathTemplate::Keys;

    /// Appends to `to`, which it borrows.
    explicit NotificationWriter(PackedNotification& to) : to_(to) {}

    void prefix(const PathTemplate& path, Keys keys);
    void leaf(const PathTemplate& path, Keys keys, std::uint64_t value);
    void leaf(const PathTemplate& path, Keys keys, std::string_view value);
    void flagLeaf(const PathTemplate& path, Keys keys, bool value);
    /// A label, say, is a number, or a name if it has one.
    struct Element {
        std::uint64_t number = 0;
        std::string_view name;  ///< instead of the number when not empty
    };
    void leafList(const PathTemplate& path, Keys keys, std::span<const Element> elements);
    /// The leaf is not there, whatever the client has been told: for entries that are not atomic.
    void leafDeletion(const PathTemplate& path, Keys keys);
    void atomic();
    /// A prefix with the origin only, and the entry's absolute path as deleted.
    void deletion(std::string_view origin, const PathTemplate& path, Keys keys);

private:
    void updateHead(const PathTemplate& path, Keys keys, std::size_t typedValueBytes);
    void varint(int field, std::uint64_t value);

    PackedNotification& to_;
};

}  // namespace Gale
