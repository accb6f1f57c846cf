#pragma once

#include <functional>
#include <map>
#include <string>

namespace AgentHost {

enum class OutputFormat { text, json };

/// One request of an operator, as it came over the control socket.
struct CommandRequest {
    std::string command;
    OutputFormat format = OutputFormat::text;
    std::map<std::string, std::string> parameters;
    int socket = -1;  ///< the client's descriptor, which names it in traces
};

/// "text" or "json", as requests say it.
constexpr const char* formatName(OutputFormat format) {
    return format == OutputFormat::json ? "json" : "text";
}

/// The whole answer to a request. Not empty `error`: the command failed, and this says why.
struct CommandReply {
    std::string output;
    std::string error;
};

/// Answers a request at once. Short: it runs in one slice of the scheduler.
using CommandCallback = std::function<CommandReply(const CommandRequest&)>;

/// Where the answer to a request goes; to be called once, on the scheduler's thread. The client may
/// have gone meanwhile: the answer is then dropped.
using CommandAnswer = std::function<void(CommandReply)>;
/// Answers a request now or later.
using DeferredCommandCallback = std::function<void(const CommandRequest&, CommandAnswer)>;

}  // namespace AgentHost
