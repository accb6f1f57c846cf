#include "platform/AgentHost/AgentPlugin.h"

void nobodyHasThis();

PEL_AGENT_REVISION();
extern "C" void* agentFactory(const char* /*name*/) {
    nobodyHasThis();
    return nullptr;
}
