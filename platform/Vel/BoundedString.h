#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Vel/Errors.h"

namespace Vel {

/// A string of at most MaxLength bytes; a longer one raises a RangeError.
template <std::size_t MaxLength>
class BoundedString {
public:
    static constexpr std::size_t maxLength() { return MaxLength; }

    BoundedString() = default;
    explicit BoundedString(std::string_view text) : text_{text} {
        if (text.size() > MaxLength) {
            throw RangeError{"Vel::String::bytes > maxLength() not allowed"};
        }
    }
    const std::string& stringValue() const { return text_; }
    bool empty() const { return text_.empty(); }
    friend auto operator<=>(const BoundedString&, const BoundedString&) = default;
    friend bool operator==(const BoundedString&, const BoundedString&) = default;
    template <class H>
    friend H AbslHashValue(H h, const BoundedString& s) {
        return H::combine(std::move(h), s.text_);
    }

private:
    std::string text_;
};

}  // namespace Vel
