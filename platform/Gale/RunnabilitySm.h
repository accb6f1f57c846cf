#pragma once

#include "platform/Gale/Server.h"
#include "platform/Gale/ServiceStatus.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Sm.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Hubdb {
class EntityManager;
}

namespace Gale {

/// Owns the streaming server: starts it, and stops it when released.
///
///   input                                   handler              output
///   host's and agent's configuration        handleInitialized    server listening, or
///   retry timer (5 s)                       handleRetry          state() says why not yet
///   owner lets go                           handleCleanup        streams end with Unavailable,
///                                                                runnabilityDir "server" removed
///
/// The tree is <global directory>/<entity manager's name>/<rootName>, which must be there.
class RunnabilitySm final : public Vel::Sm {
public:
    RunnabilitySm(Vel::Ref<Vel::Dir> runnabilityDir,
                  const Vel::Ref<Hubdb::EntityManager>& entityManager,
                  ServerConfig serverConfig,
                  const std::optional<CustomProviderConfig>& customProviderConfig,
                  const std::vector<ExtraProvider>& extraProviders,
                  Vel::Ref<Vel::Sm> cmdRequestDirSm,
                  Vel::Ref<Kiln::TaskScheduler> scheduler);
    ~RunnabilitySm() override;

    /// Ends all streams and the server's thread; harmless when done already.
    void handleCleanup();

    /// The server accepts connections.
    bool running() const;
    /// 0 when not running.
    std::uint16_t port() const;
    /// Why it is not running; empty when it is.
    const std::string& error() const;
    /// Answered on the scheduler's thread once the I/O thread has told its part, or has not within
    /// ServiceStatus::kPatience; at once when the server is not running.
    void status(StatusAnswer answer);

private:
    void handleInitialized();

    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Gale
