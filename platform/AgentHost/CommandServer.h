#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "platform/AgentHost/CmdRequestDirSm.h"
#include "platform/Kiln/TaskScheduler.h"

namespace AgentHost {

class CommandSession;

/// Answers requests on a Unix socket. Lines of JSON both ways; CONTROL-PROTOCOL.md beside this file
/// has them. All on the scheduler's thread, with non-blocking sockets: a client that is slow, sends
/// rubbish or goes away costs its own connection and nothing else.
class CommandServer {
public:
    struct Limits {
        std::size_t connections = 32;           ///< further ones are told so and closed at once
        std::size_t requestBytes = 64U << 10U;  ///< of one request line
        /// For a request to be whole, and without a byte taken of an answer: then closed.
        Kiln::Duration idleTime = std::chrono::seconds(30);
        /// Of silence, while an asynchronous command is served: then the client is told that it is.
        Kiln::Duration heartbeat = std::chrono::seconds(1);
    };

    CommandServer(Vel::Ref<Kiln::TaskScheduler> scheduler, Vel::Ref<CmdRequestDirSm> commands);
    CommandServer(Vel::Ref<Kiln::TaskScheduler> scheduler,
                  Vel::Ref<CmdRequestDirSm> commands,
                  Limits limits);
    CommandServer(const CommandServer&) = delete;
    CommandServer& operator=(const CommandServer&) = delete;
    ~CommandServer();

    /// Listens at the path. A socket that a dead process left there is replaced: whoever calls this
    /// has made sure that no living one owns it. What is no socket stays. Empty, or what went wrong.
    std::string listen(const std::filesystem::path& path);
    std::size_t sessions() const { return sessions_.size(); }
    /// Bytes of answers that wait for their clients to take them.
    std::size_t bufferedBytes() const;

private:
    void waitForClients();
    void accept();

    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Vel::Ref<CmdRequestDirSm> commands_;
    Limits limits_;
    std::filesystem::path path_;
    int fd_ = -1;
    std::uint64_t nextId_ = 1;
    std::map<std::uint64_t, std::unique_ptr<CommandSession>> sessions_;
    Kiln::FdWatch watch_;
    Kiln::Task resume_;  // accepts again after descriptors ran out
};

}  // namespace AgentHost
