#include "platform/AgentHost/AgentBase.h"

#include <utility>

namespace AgentHost {

AgentBase::AgentBase(std::string name) : name_{std::move(name)} {}

AgentBase::~AgentBase() = default;

void AgentBase::servicesIs(HostServices services) {
    services_ = std::move(services);
    sharedMemoryMountGroup_ = Vel::make<Mesa::MountGroup>(services_.sharedMemoryEntityManager);
}

}  // namespace AgentHost
