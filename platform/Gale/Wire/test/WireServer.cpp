// The test service on a thread of its own, for clients in other processes: prints the port, ends
// when standard input does. "stop <ms>" there stops gracefully; "live <text>" pushes to open calls.

#include <chrono>
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/TestService.h"

namespace {

using namespace Gale::Wire;

void printCounters(const ServerStatus& status, std::size_t handlers) {
    std::cout << "{\"handlers\": " << handlers;
    for (std::size_t i = 0; i < static_cast<std::size_t>(Count::Last_); ++i) {
        const auto count = static_cast<Count>(i);
        std::cout << ", \"" << name(count) << "\": " << status.total[count];
    }
    std::cout << "}" << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    const Kiln::SteadyClock clock;
    TestService service;
    Options options;
    if (argc > 1) { options.stallTime = std::chrono::milliseconds(std::stoi(argv[1])); }
    Server server{options, clock};
    TestService::addTo(server.router(), service);
    if (const auto failure = server.listen()) {
        std::cerr << *failure << std::endl;
        return 1;
    }
    server.start();
    std::cout << server.port() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words{line};
        std::string verb;
        std::string argument;
        words >> verb >> argument;
        if (verb == "stop") {
            server.stop(std::chrono::milliseconds(std::stoi(argument)));
            std::cout << "stopped" << std::endl;
            return 0;
        }
        if (verb == "live") {
            server.post([&service, argument] { service.push(argument); });
        }
        if (verb == "status") {
            server.post([&] { printCounters(server.status(), service.handlers); });
        }
    }
    server.stop(Kiln::Duration::zero());
    return 0;
}
