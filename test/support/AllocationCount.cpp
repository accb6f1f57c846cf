#include "test/support/AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::uint64_t allocations = 0;
}

// The sanitizers bring their own operators; there the counter is driven by them alone and stays 0.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void* operator new(std::size_t size) {
    ++allocations;
    if (void* at = std::malloc(size == 0 ? 1 : size)) { return at; }
    throw std::bad_alloc{};
}
void operator delete(void* at) noexcept {
    std::free(at);
}
void operator delete(void* at, std::size_t /*size*/) noexcept {
    std::free(at);
}
#endif

namespace TestSupport {

AllocationCount::AllocationCount() : from_{allocations} {}

std::uint64_t AllocationCount::since() const {
    return allocations - from_;
}

}  // namespace TestSupport
