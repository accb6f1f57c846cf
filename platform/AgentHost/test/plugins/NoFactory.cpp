#include "platform/AgentHost/AgentPlugin.h"

PEL_AGENT_REVISION();
