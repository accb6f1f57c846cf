#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/Kiln/TaskScheduler.h"

namespace Kiln {

/// Frees a container's elements when nothing else is to be done, slice by slice: a million of them
/// would hold up everything for longer than a slice may last.
template <class Container>
void freeInSlices(TaskScheduler& scheduler, Container container) {
    constexpr std::size_t kAtOnce = 256;
    if (container.size() <= kAtOnce) { return; }
    const auto rest = std::make_shared<Container>(std::move(container));
    scheduler.runLast("FreeInSlices", [rest, &scheduler] {
        while (!rest->empty()) {
            rest->erase(rest->begin());
            if (scheduler.mustYield()) { return true; }
        }
        return false;
    });
}

}  // namespace Kiln
