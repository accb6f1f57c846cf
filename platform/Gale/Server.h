#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "absl/container/node_hash_set.h"
#include "platform/Gale/Wire/Options.h"
#include "platform/Kiln/Task.h"
#include "platform/Vel/Ref.h"

namespace Mesa {
class EntityManager;
}

// What the streaming server is told by its host and by the agent. RunnabilitySm.h has the machine
// that runs it.
namespace Gale {

/// What a client may ask for; each bound has its error.
struct Limits {
    std::size_t subscriptionsPerCall = 128;
    std::size_t pathElements = 32;       ///< of prefix and path together
    std::size_t pathBytes = 4096;        ///< of target, names and keys of prefix and path together
    std::size_t subscribers = 256;       ///< calls of Subscribe and Get at a time
    std::size_t waitingPolls = 16;       ///< of one call, beside the one that is being answered
    std::size_t gets = 8;                ///< calls of Get at a time: each may hold an answer twice
    std::size_t getBytes = 16U << 20U;   ///< answer to one Get
    std::size_t jsonBytes = 64U << 20U;  ///< JSON forms kept to be shared, in each JSON encoding
    /// The shortest sample_interval and heartbeat_interval, and the one of a sample_interval of 0.
    Kiln::Duration shortestInterval = std::chrono::seconds(1);
    /// How often counters go to a subscription that leaves it to the server.
    Kiln::Duration countersInterval = std::chrono::seconds(5);
};

/// Settings of the process that hosts the agent.
struct HostConfig {
    Wire::Options wire;  ///< port 9339 unless set otherwise
    /// An address other than loopback is served without encryption only if this is set.
    bool clearTextOnAnyAddress = false;
    /// Keeps time stamps from going back over restarts; empty: not kept.
    std::filesystem::path stampFile;
    /// Name of the default VRF in the OpenConfig view.
    std::string defaultInstance = "DEFAULT";
    /// How long an entry waits for one that it names before it is shown all the same.
    Kiln::Duration referenceWait = std::chrono::seconds(30);
    /// How long the entries of a view that is made on demand outlast the last call that reads them.
    Kiln::Duration demandLinger = std::chrono::seconds(60);
    /// How long open calls have to end when the server stops.
    Kiln::Duration stopGrace = std::chrono::seconds(0);
    Limits limits;

    HostConfig() { wire.port = 9339; }
};

/// The host's settings for servers made from now on. Scheduler's thread.
void hostConfigIs(HostConfig config);
const HostConfig& hostConfig();

/// What is streamed: the agent that owns it and the root directory of its tree.
struct ServerConfig {
    std::string agentName;
    std::string rootName;
};

/// Where the providers' notification work runs.
struct CustomProviderConfig {
    Vel::Ref<Kiln::TaskGroup> notifyTaskGroup;
};

/// Serves shared-memory tables under a name: exactly the prefixes, each "/<name>/<table path>".
class TableProvider final : public Vel::RefCounted {
public:
    TableProvider(std::string name,
                  Vel::Ref<Mesa::EntityManager> tables,
                  absl::node_hash_set<std::string> prefixes);
    ~TableProvider() override;

    const std::string& name() const { return name_; }
    const Vel::Ref<Mesa::EntityManager>& tables() const { return tables_; }
    const absl::node_hash_set<std::string>& prefixes() const { return prefixes_; }
    /// The prefixes without "/<name>/", sorted; what bears another name is left out with a trace.
    std::vector<std::string> tablePrefixes() const;

private:
    std::string name_;
    Vel::Ref<Mesa::EntityManager> tables_;
    absl::node_hash_set<std::string> prefixes_;
};

/// A provider besides the one of the tree, made when the server asks for it.
struct ExtraProvider {
    std::string name;
    std::function<Vel::Ref<TableProvider>()> make;
};

}  // namespace Gale
