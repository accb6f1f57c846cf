#pragma once

#include <cstdint>
#include <string_view>

namespace Pel {

/// Reads the string form of a value piece by piece. What does not fit raises a
/// Vel::DeserialisationError that names what was wanted.
class CharRange {
public:
    explicit CharRange(std::string_view text) : rest_{text} {}
    bool empty() const { return rest_.empty(); }
    /// The text must come next.
    void needPre(std::string_view text);
    /// A decimal number must come next. One of more than 64 bits raises a Vel::RangeError.
    std::uint64_t needNumber();
    /// Nothing may be left.
    void needEnd() const;

private:
    std::string_view rest_;
};

}  // namespace Pel
