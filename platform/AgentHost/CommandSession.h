#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/AgentHost/AsyncCommandRun.h"
#include "platform/AgentHost/CmdRequestDirSm.h"
#include "platform/AgentHost/CommandServer.h"
#include "platform/Kiln/TaskScheduler.h"

namespace AgentHost {

/// One client of the control socket: reads a line, has it answered, writes the answer piece by
/// piece as the client takes it, and only then reads on. So a client holds at most one request and
/// one answer, however fast it asks and however slowly it reads. An asynchronous command is asked
/// for more of its answer when the client has taken all there was.
class CommandSession {
public:
    /// Takes the descriptor over. `gone` deletes the session; it is called once, last of all.
    CommandSession(int fd,
                   Vel::Ref<Kiln::TaskScheduler> scheduler,
                   Vel::Ref<CmdRequestDirSm> commands,
                   const CommandServer::Limits& limits,
                   std::function<void()> gone);
    CommandSession(const CommandSession&) = delete;
    CommandSession& operator=(const CommandSession&) = delete;
    ~CommandSession();

    /// Bytes of the answer that the client has not taken.
    std::size_t bufferedBytes() const;

private:
    enum class Step { again, wait, end };

    void waitReadable();
    void waitWritable();
    void waitForNothing();
    void handleReadable();
    void handleWritable();
    /// Reads what is there, up to one piece.
    Step receive();
    /// Writes what the client takes of the answer, up to one piece.
    Step send();
    /// Has the first whole request that was read answered. False when there is none yet.
    bool takeRequest();
    void answerIs(CommandReply reply);
    /// Begins an asynchronous answer.
    void serve(Vel::Ref<AsyncShowCommandInstanceSm> machine);
    void handleProduced();
    void handleHeartbeat();
    /// Bytes came during an asynchronous answer.
    void handleSignOfLife();
    bool hungUp() const;
    /// Makes the next piece of the answer the bytes to send. False when nothing is left of it.
    bool nextFrame();
    /// Deletes the session: nothing of it may be touched after the call.
    void end();
    void progress();

    int fd_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Vel::Ref<CmdRequestDirSm> commands_;
    const CommandServer::Limits& limits_;
    std::function<void()> gone_;
    std::string input_;
    std::unique_ptr<AsyncCommandRun> run_;  // while an asynchronous command is served
    CommandReply reply_;                    // being sent: the answer, or what a slice of it made
    std::size_t replyOffset_ = 0;           // of reply_.output
    bool replying_ = false;
    bool closing_ = false;        // after the answer under way
    std::uint64_t requests_ = 0;  // taken so far
    std::uint64_t awaited_ = 0;   // the one whose answer is awaited; any other comes too late
    std::string frame_;
    std::size_t frameOffset_ = 0;
    Kiln::FdWatch readable_;
    Kiln::FdWatch writable_;
    Kiln::Task idle_;
    Kiln::Task heartbeat_;
    std::shared_ptr<CommandSession*> self_;  // what a late answer finds empty
};

}  // namespace AgentHost
