#include "test/support/Scale.h"

#include <cstdlib>

namespace TestSupport {

std::uint64_t scale() {
    const char* wanted = std::getenv("PEL_SCALE");
    const std::uint64_t entries = wanted == nullptr ? 0 : std::strtoull(wanted, nullptr, 10);
    return entries == 0 ? 100'000 : entries;
}

}  // namespace TestSupport
