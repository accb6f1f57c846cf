#pragma once

#include <cstdint>

namespace Gale {

/// How a response says what a leaf holds; the encodings of gNMI that are served.
enum class ValueEncoding : std::uint8_t {
    proto,    ///< a scalar of its own type
    json,     ///< JSON: numbers of any size are numbers, names of identities and members are bare
    jsonIetf  ///< JSON as RFC 7951 has it
};

}  // namespace Gale
