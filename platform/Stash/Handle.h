#pragma once

#include <compare>
#include <cstdint>
#include <stdexcept>

namespace Pel::Stash {

/// Names a deduplicated record: its id, and the version that the id had when it was named (ids are
/// recycled). The untyped read-only reference to what a producer wrote; null when the id is 0.
struct Handle {
    std::uint64_t record = 0;
    std::uint32_t version = 0;
    explicit operator bool() const { return record != 0; }
    friend auto operator<=>(const Handle&, const Handle&) = default;
};

/// The record's id has been recycled since the handle was taken.
class VersionMismatchException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The record's bytes do not verify.
class CorruptionDetectedException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace Pel::Stash
