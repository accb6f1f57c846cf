#pragma once

#include "platform/Gale/PackedNotification.h"

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Gale {

/// A schema path prepared as segments of a gNMI Path message with room for its list keys, so that
/// writing it costs a few numbers. The keys are given outermost first, as wire text.
///
/// Text form: "next-hops/next-hop[index]/state/index"; a list has one key. Modules ("module:name")
/// are left out, as in all gNMI paths.
class PathTemplate final {
public:
    using Keys = std::span<const std::string_view>;

    /// `origin` empty: the message has none.
    explicit PathTemplate(std::string_view text, std::string_view origin = {});

    std::size_t keyCount() const { return keyed_.size(); }
    /// Bytes of the message. `keys` are keyCount() or more; more are ignored.
    std::size_t size(Keys keys) const;
    /// The message.
    void append(PackedNotification& to, Keys keys) const;
    /// The message, of this size(), as the field "path" of an Update, and the tag of "val".
    void appendToUpdate(PackedNotification& to, Keys keys, std::size_t size) const;

private:
    /// Keys of which there are many are numbers and IPv4 prefixes.
    static constexpr std::size_t kUsualKey = 24;
    struct Keyed {
        Keyed(std::string_view before, std::string_view elementName, std::string_view keyName);
        std::size_t size(std::string_view key) const;
        void append(PackedNotification& to, std::string_view key) const;
        /// All up to a key of that size.
        std::string headOf(std::size_t keySize) const;

        std::string before;                               // complete elements in front of this one
        std::string name;                                 // the element's name field
        std::string keyName;                              // the key field of its map entry
        std::array<const Segment*, kUsualKey + 1> heads;  // headOf
    };
    void appendKeyed(PackedNotification& to, Keys keys) const;

    std::vector<Keyed> keyed_;
    const Segment* tail_;
    const Segment* updateTail_;  // with the tag of "val"; without keys also with the path's head
};

}  // namespace Gale
