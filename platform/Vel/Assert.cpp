#include "platform/Vel/Assert.h"

#include <cstdio>
#include <cstdlib>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("Vel");

namespace Vel {

void assertionFailed(const char* condition, const char* file, int line) {
    TRACE5("assertion failed: {} at {}:{}", condition, file, line);
    std::fprintf(stderr, "%s:%d: assertion failed: %s\n", file, line, condition);
    std::fflush(stderr);
    std::abort();
}

}  // namespace Vel
