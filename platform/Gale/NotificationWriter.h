#pragma once

#include "platform/Gale/PathTemplate.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Gale {

/// Writes one gNMI Notification straight into wire format, PROTO encoding. Order of calls: stamp,
/// then prefix, leaves and atomic, or else deletion.
class NotificationWriter final {
public:
    using Keys = PathTemplate::Keys;

    /// Bytes at the front that hold the stamp; the same for all stamps from 1973 to 2262.
    static constexpr std::size_t kStampBytes = 10;

    /// Appends to `to`, which it borrows.
    explicit NotificationWriter(std::string& to) : to_(to) {}

    /// Nanoseconds since the epoch.
    void stamp(std::int64_t nanoseconds);
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
    void atomic();
    /// A prefix with the origin only, and the entry's absolute path as deleted.
    void deletion(std::string_view origin, const PathTemplate& path, Keys keys);

private:
    void updateHead(const PathTemplate& path, Keys keys, std::size_t typedValueBytes);

    std::string& to_;
};

}  // namespace Gale
