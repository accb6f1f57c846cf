#include <poll.h>

#include <memory>
#include <stdexcept>

#include "bench/Figures.h"
#include "bench/FilledStore.h"
#include "bench/RawClient.h"
#include "bench/RawStream.h"

namespace Bench {
namespace {

/// All of them to the end of their calls, by one thread.
std::uint64_t takeAll(std::vector<std::unique_ptr<RawClient>>& clients) {
    std::vector<pollfd> waits;
    for (const auto& client : clients) { waits.push_back({client->socket(), POLLIN, 0}); }
    std::uint64_t messages = 0;
    for (std::size_t left = clients.size(); left > 0;) {
        if (::poll(waits.data(), waits.size(), 60'000) <= 0) {
            throw std::runtime_error{"a subscriber is not served"};
        }
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if (waits[i].revents == 0) { continue; }
            clients[i]->drain();
            if (!clients[i]->ended()) { continue; }
            messages += clients[i]->messages();
            waits[i].fd = -1;
            --left;
        }
    }
    return messages;
}

}  // namespace

Json subscriberFigures(const Setting& setting, const std::vector<unsigned>& counts) {
    AgentProcess agent{setting.programs, setting.root};
    const std::uint16_t port = agent.waitForPort();
    subscribeUntil(port, entriesOf(setting.nextHops));
    Json result = Json::array();
    for (const unsigned count : counts) {
        std::vector<double> each;
        for (int round = 0; round < setting.rounds; ++round) {
            const std::uint64_t before = agent.cpuNanoseconds();
            std::vector<std::unique_ptr<RawClient>> clients;
            for (unsigned i = 0; i < count; ++i) {
                clients.push_back(
                    std::make_unique<RawClient>(port, kSubscribe, subscribeRequest(Mode::once)));
            }
            const auto messages = static_cast<double>(takeAll(clients));
            each.push_back(static_cast<double>(agent.cpuNanoseconds() - before) / messages / 1e3);
        }
        result.push_back({{"subscribers", count}, {"cpu_us_per_message", least(each)}});
    }
    return result;
}

}  // namespace Bench
