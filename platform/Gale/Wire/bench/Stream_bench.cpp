// What a reply message costs the I/O thread: a server on its own thread streams messages of 340
// bytes to raw clients on this one. "server_ns" is CPU time of the server's thread for a message.

#include <benchmark/benchmark.h>
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <memory>
#include <vector>

#include "platform/Gale/Wire/Server.h"
#include "platform/Gale/Wire/test/TestService.h"
#include "platform/Gale/Wire/test/WireClient.h"

namespace Gale::Wire {
namespace {

constexpr unsigned kMessages = 200'000;

struct Sample {
    double cpuSeconds;
    std::uint64_t writes;
    std::uint64_t dataFrames;
};

Sample sample(Server& server) {
    std::promise<Sample> promise;
    auto future = promise.get_future();
    server.post([&] {
        timespec cpu{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
        const Counters total = server.status().total;
        promise.set_value({static_cast<double>(cpu.tv_sec) + static_cast<double>(cpu.tv_nsec) / 1e9,
                           total[Count::Writes],
                           total[Count::DataFramesSent]});
    });
    return future.get();
}

void stream(std::vector<std::unique_ptr<WireClient>>& clients, unsigned messages) {
    const std::string request = std::to_string(messages) + " 340";
    std::vector<std::uint32_t> streams;
    for (auto& client : clients) { streams.push_back(client->unary("/test.T/Numbers", request)); }
    for (std::size_t done = 0; done < clients.size();) {
        done = 0;
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if (!clients[i]->pump()) { std::abort(); }
            auto& reply = clients[i]->reply(streams[i]);
            reply.data.clear();  // only the transport is measured
            done += reply.ended ? 1U : 0U;
        }
    }
    // Give back what was consumed, or the connection's window would end after 2 GiB.
    for (auto& client : clients) { client->window(0, messages * 345); }
}

void BM_Server_Stream(benchmark::State& state) {
    const Kiln::SteadyClock clock;
    TestService service;
    Server server{{}, clock};
    TestService::addTo(server.router(), service);
    if (server.listen()) { std::abort(); }
    server.start();
    const auto subscribers = static_cast<std::size_t>(state.range(0));
    std::vector<std::unique_ptr<WireClient>> clients;
    for (std::size_t i = 0; i < subscribers; ++i) {
        clients.push_back(std::make_unique<WireClient>(
            server.port(), true, std::vector<WireClient::Setting>{{4, 0x7FFFFFFF}}));
    }
    const unsigned each = kMessages / static_cast<unsigned>(subscribers);
    stream(clients, each);  // warm
    const Sample before = sample(server);
    double messages = 0;
    for (auto _ : state) {
        stream(clients, each);
        messages += static_cast<double>(each) * static_cast<double>(subscribers);
    }
    const Sample after = sample(server);
    state.SetItemsProcessed(static_cast<std::int64_t>(messages));
    state.counters["server_ns"] = (after.cpuSeconds - before.cpuSeconds) * 1e9 / messages;
    state.counters["messages_per_write"] =
        messages / static_cast<double>(after.writes - before.writes);
    state.counters["messages_per_frame"] =
        messages / static_cast<double>(after.dataFrames - before.dataFrames);
}
BENCHMARK(BM_Server_Stream)->Arg(1)->Arg(8)->Arg(64)->UseRealTime()->Unit(benchmark::kMillisecond);

/// The yardstick: the same bytes copied once.
void BM_Memory_Copy(benchmark::State& state) {
    std::vector<char> from(345UL * 1000, 'x');
    std::vector<char> to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 1000);
}
BENCHMARK(BM_Memory_Copy);

}  // namespace
}  // namespace Gale::Wire
