#pragma once

#include <cstdint>

namespace TestSupport {

/// How many entries a test labelled `scale` works with: PEL_SCALE, or 100,000. `make scale` sets a
/// million.
std::uint64_t scale();

}  // namespace TestSupport
