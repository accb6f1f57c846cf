#pragma once

#include <string>

#include "platform/Kiln/TaskScheduler.h"

namespace Lmo {

enum class Synchronous { byDefault = 0, synchronous = 1, asynchronous = 2 };

/// How a machine that scans its inputs in tasks runs.
struct SmControl {
    Vel::Ref<Kiln::TaskScheduler> scheduler;  ///< of the scan tasks; needed unless synchronous
    Kiln::TaskPriority taskPriority = 3;      ///< of the scan tasks
    std::string traceHandle;                  ///< empty: the machine's own
    Synchronous synchronous = Synchronous::byDefault;
};

}  // namespace Lmo
