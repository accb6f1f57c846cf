#include "platform/AgentHost/Allocator.h"

#include <malloc.h>

namespace AgentHost {

void allocatorWorksEvenly() {
    ::mallopt(M_TRIM_THRESHOLD, -1);
    ::mallopt(M_MXFAST, 0);
}

}  // namespace AgentHost
