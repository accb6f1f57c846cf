#pragma once

#include "platform/AgentHost/CliPrinter.h"
#include "platform/Kiln/Clock.h"

namespace Store {
class Reader;
}

namespace AgentHost {

class Host;

/// What a status says of a host, whatever its agent: who runs, where clients connect, how far the
/// stores are read, whether their writer lives, which tasks have failed. docs/show.md has the lines.
class HostStatus {
public:
    /// The host outlives it.
    explicit HostStatus(const Host& host) : host_{host} {}

    /// What comes before the agent's part.
    void print(CliPrinter& to) const;
    /// What comes after it.
    void printTasks(CliPrinter& to) const;

private:
    void printWho(CliPrinter& to) const;
    void printWriter(CliPrinter& to) const;

    const Host& host_;
};

}  // namespace AgentHost
