#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace AgentHost {

/// A client of the control socket for tests: non-blocking, on the scheduler's thread.
class ControlPeer {
public:
    explicit ControlPeer(const std::filesystem::path& socket);
    ControlPeer(const ControlPeer&) = delete;
    ControlPeer& operator=(const ControlPeer&) = delete;
    ~ControlPeer() { close(); }

    bool connected() const { return connected_; }
    /// Bytes that the socket took.
    std::size_t send(std::string_view bytes) const;
    /// Reads what is there; true once the other side has ended the connection.
    bool receive();
    /// Reads at most this many bytes.
    std::size_t receiveSome(std::size_t bytes);
    const std::string& received() const { return received_; }
    /// What was received since the last call.
    std::string takeReceived() { return std::exchange(received_, {}); }
    std::vector<std::string> lines() const;
    /// Says that nothing more will be sent.
    void shutdown() const;
    void close();

private:
    int fd_ = -1;
    bool connected_ = false;
    std::string received_;
};

}  // namespace AgentHost
