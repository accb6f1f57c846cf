#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Pel::Forwarder {

/// Asks for the VNI filters of VXLAN devices; the distribution's headers do not have it.
inline constexpr std::uint16_t kGetTunnel = 122;

/// A non-blocking rtnetlink socket of the network namespace in which its thread stood when it was opened. One that listens
/// hears of links, VNI filters, neighbours, nexthop objects and routes; it also dumps, since the kernel queues both in the
/// order in which things happened. One that only asks is for what has no such order.
class NetlinkSocket {
public:
    enum class Use : std::uint8_t { Listen, Ask };

    /// `receiveBuffer` in bytes; as much as the system allows is taken when it cannot be had.
    explicit NetlinkSocket(std::size_t receiveBuffer);
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;
    ~NetlinkSocket();

    /// Opens, and subscribes to listen. "" on success, else what failed.
    std::string open(Use use = Use::Listen);
    int fd() const { return fd_; }
    std::uint32_t port() const { return port_; }

    /// Asks for all objects of a GET message type; `family` 0 for all. False when the kernel would
    /// not take the request.
    bool requestDump(std::uint16_t type, std::uint8_t family, std::uint32_t sequence);
    /// The same of the two that are counted, with their counts: nexthop groups, and VNI filters.
    bool requestCounts(std::uint16_t type, std::uint32_t sequence);

    enum class Result : std::uint8_t {
        Data,     ///< `data` is set, until the next call
        Empty,    ///< nothing waits
        Overrun,  ///< notifications were lost
        Failed,
    };
    Result receive(std::span<const std::byte>& data);

private:
    struct Request;
    bool subscribe();
    bool send(Request& request, std::uint16_t type, std::uint32_t sequence);
    void enlargeReceiveBuffer() const;

    std::size_t receiveBuffer_;
    std::unique_ptr<std::byte[]> buffer_;
    int fd_ = -1;
    std::uint32_t port_ = 0;
};

}  // namespace Pel::Forwarder
