#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Gale {

/// A schema path prepared as bytes of a gNMI Path message with room for its list keys, so that
/// writing it costs a few copies. The keys are given outermost first, as wire text.
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
    void append(std::string& to, Keys keys) const;

private:
    struct Keyed {
        std::string before;   // complete elements in front of this one
        std::string name;     // the element's name field
        std::string keyName;  // the key field of its map entry
    };
    static std::size_t entrySize(const Keyed& keyed, std::string_view key);
    static std::size_t elementSize(const Keyed& keyed, std::string_view key);

    std::vector<Keyed> keyed_;
    std::string tail_;
};

}  // namespace Gale
