#include <cstdlib>

// Calling a factory of another revision would be the error.
extern "C" void* agentFactory(const char* /*name*/) {
    std::abort();
}
extern "C" {
extern const char pelAgentRevision[];
const char pelAgentRevision[] = "0.0.0-other";
}
