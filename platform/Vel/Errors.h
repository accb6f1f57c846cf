#pragma once

#include <stdexcept>
#include <string>

namespace Vel {

/// A value outside the range of its type. The text is the type's own.
class RangeError : public std::range_error {
public:
    using std::range_error::range_error;
};

/// A string form that cannot be read back.
class DeserialisationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace Vel
