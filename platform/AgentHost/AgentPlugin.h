#pragma once

namespace AgentHost {

class AgentBase;

/// The two symbols of a plug-in, both with C linkage:
///     const char pelAgentRevision[]                 the PEL_REVISION that it was built against
///     AgentBase* agentFactory(const char* name)     a new agent for the host to keep; null when
///                                                   that failed; what is thrown out of it is told and ends the start
inline constexpr const char* kRevisionSymbol = "pelAgentRevision";
inline constexpr const char* kFactorySymbol = "agentFactory";
using AgentFactory = AgentBase* (*)(const char* name);

}  // namespace AgentHost

/// Says in one source file of a plug-in which revision it was built against.
#define PEL_AGENT_REVISION()                      \
    extern "C" {                                  \
    extern const char pelAgentRevision[];         \
    const char pelAgentRevision[] = PEL_REVISION; \
    }                                             \
    static_assert(true)
