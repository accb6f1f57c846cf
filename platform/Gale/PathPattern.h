#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Gale {

/// An absolute path as a client asks for it: "*" stands for one element, "..." for any number of
/// them, none included; keys that are left out or "*" stand for all. It covers the nodes that it
/// matches and all below them.
class PathPattern final {
public:
    /// A path may have this many elements at most; State has a bit for each and one for the end.
    static constexpr std::size_t kMaxElements = 62;

    struct Element {
        enum class Kind : std::uint8_t { named, anyOne, anyDepth };
        Kind kind = Kind::named;
        std::string name;                                       ///< of `named`
        std::vector<std::pair<std::string, std::string>> keys;  ///< sorted; fixed values only
    };

    /// Elements from the root down; `keys` may hold "*" and come in any order.
    void append(std::string name, std::vector<std::pair<std::string, std::string>> keys);

    const std::vector<Element>& elements() const { return elements_; }
    /// For people: "/interfaces/interface[name=eth0]".
    std::string text() const;

    // Matching, element by element: begin() is before the first one, then step() for each element
    // of a concrete path. From the node at which covered() becomes true all below is covered.

    /// How far the pattern may have come: bit i = the first i elements are matched.
    using State = std::uint64_t;
    State begin() const { return from(0); }
    /// The elements before this one are matched.
    State from(std::size_t element) const { return close(State{1} << element); }
    bool covered(State state) const { return (state >> elements_.size()) != 0; }
    /// Without regard to keys.
    State step(State state, std::string_view name) const {
        return step(state, name, [](const Element&) { return true; });
    }
    /// `keysMatch(element)`: whether the element's fixed keys fit.
    template <class KeysMatch>
    State step(State state, std::string_view name, const KeysMatch& keysMatch) const {
        State next = state & (State{1} << elements_.size());
        for (std::size_t i = 0; i < elements_.size(); ++i) {
            if ((state >> i & 1U) == 0) { continue; }
            const Element& element = elements_[i];
            if (element.kind == Element::Kind::anyDepth) {
                next |= State{1} << i;
            } else if ((element.kind == Element::Kind::anyOne || element.name == name) &&
                       keysMatch(element)) {
                next |= State{1} << (i + 1);
            }
        }
        return close(next);
    }

private:
    State close(State state) const;  // "..." may stand for nothing

    std::vector<Element> elements_;
};

}  // namespace Gale
