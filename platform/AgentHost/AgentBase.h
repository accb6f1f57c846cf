#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/AgentHost/CliPrinter.h"
#include "platform/AgentHost/CmdRequestDirSm.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Mesa/EntityManager.h"
#include "platform/Vel/Ref.h"

namespace AgentHost {

/// What the host lends an agent before doInit().
struct HostServices {
    Vel::Ref<Kiln::TaskScheduler> scheduler;
    Vel::Ref<Hubdb::EntityManager> entityManager;
    Vel::Ref<Mesa::EntityManager> sharedMemoryEntityManager;
    Vel::Ref<CmdRequestDirSm> cmdRequestDirSm;
    HostConfig config;
};

/// Prints a part of a status.
using StatusSection = std::function<void(CliPrinter&)>;
using StatusAnswer = std::function<void(const StatusSection&)>;

/// Base of an agent, the root object of a plug-in. Constructed with its name only; the host then
/// calls, all on the scheduler's thread:
///
///     servicesIs()                  what is lent, from now to the agent's death
///     doInit()                      the agent asks for its mounts
///     doMountsComplete()            by its state-database mount group, later
///     doReinitialize()              each time an operator asks for the configuration to be read
///     doStop()                      ends what clients see: streams end with UNAVAILABLE
///     doCleanup()                   deletes what it published
///
/// doStop() and doCleanup() come even when the mounts never completed.
class AgentBase : public Vel::RefCounted, public Hubdb::Mounter {
public:
    explicit AgentBase(std::string name);
    ~AgentBase() override;

    const std::string& name() const { return name_; }
    void servicesIs(HostServices services);

    virtual void doInit() = 0;
    virtual void doCleanup() = 0;
    virtual void doReinitialize() {}
    virtual void doStop() {}
    /// The port at which clients reach the agent's streaming server; 0 while there is none.
    virtual std::uint16_t gnmiPort() const { return 0; }
    /// The agent's part of a status, which comes after the host's: now, or within a second or two
    /// on the scheduler's thread, once. Empty: it has nothing to say.
    virtual void status(const StatusAnswer& answer) { answer({}); }

    const Vel::Ref<Kiln::TaskScheduler>& scheduler() const { return services_.scheduler; }
    const Vel::Ref<Hubdb::EntityManager>& entityManager() const { return services_.entityManager; }
    const Vel::Ref<Mesa::EntityManager>& sharedMemoryEntityManager() const {
        return services_.sharedMemoryEntityManager;
    }
    /// The agent's one mount group of shared-memory tables.
    const Vel::Ref<Mesa::MountGroup>& sharedMemoryMountGroup() const {
        return sharedMemoryMountGroup_;
    }
    const Vel::Ref<CmdRequestDirSm>& cmdRequestDirSm() const { return services_.cmdRequestDirSm; }
    const std::string& stashName() const { return services_.config.stashName; }
    const HostConfig& hostConfig() const { return services_.config; }

private:
    std::string name_;
    HostServices services_;
    Vel::Ref<Mesa::MountGroup> sharedMemoryMountGroup_;
};

}  // namespace AgentHost
