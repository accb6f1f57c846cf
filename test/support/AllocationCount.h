#pragma once

#include <cstdint>

namespace TestSupport {

/// Counts calls of operator new in this thread. A test binary that includes this and links
/// TestSupport has the counting operators.
class AllocationCount {
public:
    AllocationCount();
    std::uint64_t since() const;

private:
    std::uint64_t from_;
};

}  // namespace TestSupport
