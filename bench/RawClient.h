#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace Bench {

/// A client that takes bytes and looks at nothing but frame and message boundaries: what it costs
/// is little beside any server. One call on one connection; blocks in poll() while nothing comes.
class RawClient {
public:
    /// Connects to the loopback port and makes the call.
    RawClient(std::uint16_t port, const std::string& method, std::string_view request);
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient();

    /// Keeps the messages with their prefixes in bytes(); before the first read().
    void keepBytes() { keep_ = true; }
    /// Waits for bytes and takes them. False when the call or the connection has ended, or when
    /// nothing came in time.
    bool read(std::chrono::milliseconds patience = std::chrono::minutes{5});
    /// Takes what is there without waiting, as read() does.
    bool drain() { return read(std::chrono::milliseconds{0}); }

    std::uint64_t messages() const { return messages_; }
    /// Of these: sync responses.
    std::uint64_t syncs() const { return syncs_; }
    /// The call has ended.
    bool ended() const { return ended_; }
    std::string& bytes() { return bytes_; }
    int socket() const { return socket_; }

private:
    void send(std::string_view bytes);
    void frame(std::uint8_t type,
               std::uint8_t flags,
               std::uint32_t stream,
               std::string_view payload);
    void take(std::string_view bytes);
    void data(std::string_view bytes);
    void frameEnded();

    int socket_;
    bool keep_ = false;
    bool ended_ = false;
    std::uint64_t messages_ = 0;
    std::uint64_t syncs_ = 0;
    std::string bytes_;
    std::string head_;     // of the frame that is coming
    std::string control_;  // payload of a frame that is no DATA
    std::uint64_t frameLeft_ = 0;
    std::string prefix_;  // of the message that is coming
    std::uint64_t messageLeft_ = 0;
    std::string buffer_;
};

/// A Subscribe call for the whole AFT.
enum class Mode { once, stream };
constexpr const char* kSubscribe = "/gnmi.gNMI/Subscribe";
std::string subscribeRequest(Mode mode);

}  // namespace Bench
