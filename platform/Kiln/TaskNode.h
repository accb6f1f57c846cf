#pragma once

#include <functional>
#include <map>
#include <memory>

#include "platform/Kiln/Task.h"

namespace Kiln {

struct Task::Node {
    std::function<bool()> body;
    TaskStatistics statistics;
    bool ready = false;
    bool cancelled = false;
    bool hasTimer = false;
    std::multimap<TimePoint, std::shared_ptr<Node>>::iterator timer;
};

}  // namespace Kiln
