#pragma once

#include <vector>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

class Deadlines;
class Router;
class Session;
struct Options;

/// What all connections of one server share; borrowed, I/O thread only.
struct Environment {
    const Options& options;
    const Kiln::Clock& clock;
    const Router& router;
    Deadlines& deadlines;
    std::vector<Session*>& touched;  ///< sessions to flush at the end of this turn
};

}  // namespace Gale::Wire
