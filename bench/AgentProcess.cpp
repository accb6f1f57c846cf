#include "bench/AgentProcess.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace Bench {
namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::uint16_t freePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    ::bind(socket, reinterpret_cast<const sockaddr*>(&address), size);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(socket);
    return ntohs(address.sin_port);
}

bool answers(std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool connected =
        ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return connected;
}

std::filesystem::path processDirectory(pid_t pid) {
    return std::filesystem::path{"/proc"} / std::to_string(pid);
}

}  // namespace

AgentProcess::AgentProcess(const Programs& programs, const std::filesystem::path& root)
    : port_{freePort()} {
    const std::string error = process_.start({programs.agentd,
                                              "--root",
                                              root.string(),
                                              "--plugin",
                                              programs.plugin,
                                              "--listen",
                                              "127.0.0.1:" + std::to_string(port_)});
    if (!error.empty()) { throw std::runtime_error{error}; }
}

std::uint16_t AgentProcess::waitForPort() const {
    for (int i = 0; i < 20'000; ++i) {
        if (answers(port_)) { return port_; }
        std::this_thread::sleep_for(std::chrono::microseconds{500});
    }
    throw std::runtime_error{"pel-agentd does not listen"};
}

std::uint64_t AgentProcess::cpuNanoseconds() const {
    std::uint64_t sum = 0;
    const auto tasks = processDirectory(process_.pid()) / "task";
    for (const auto& thread : std::filesystem::directory_iterator{tasks}) {
        std::ifstream in{thread.path() / "schedstat"};
        std::uint64_t nanoseconds = 0;
        in >> nanoseconds;
        sum += nanoseconds;
    }
    return sum;
}

std::uint64_t AgentProcess::rssAnonBytes() const {
    std::ifstream in{processDirectory(process_.pid()) / "status"};
    std::string name;
    std::uint64_t kilobytes = 0;
    while (in >> name) {
        if (name == "RssAnon:" && in >> kilobytes) { return kilobytes << 10U; }
    }
    throw std::runtime_error{"pel-agentd has ended"};
}

}  // namespace Bench
