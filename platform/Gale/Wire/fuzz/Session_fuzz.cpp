#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/Gale/Wire/Deadlines.h"
#include "platform/Gale/Wire/Environment.h"
#include "platform/Gale/Wire/Options.h"
#include "platform/Gale/Wire/Router.h"
#include "platform/Gale/Wire/Session.h"
#include "platform/Gale/Wire/test/TestService.h"

namespace {

using namespace Gale::Wire;

/// A client whose bytes are all there at once, and who takes a little of the output a turn.
class FuzzPipe final : public Pipe {
public:
    explicit FuzzPipe(std::span<const std::byte> input) : input_{input} {}
    int descriptor() const override { return -1; }
    Outcome read(std::span<std::byte> into) override {
        const std::size_t n = std::min(into.size(), input_.size());
        if (n == 0) { return {Result::Blocked, 0}; }
        std::copy_n(input_.begin(), n, into.begin());
        input_ = input_.subspan(n);
        return {Result::Progress, n};
    }
    Outcome write(std::span<const std::byte> from) override {
        const std::size_t n = std::min<std::size_t>(from.size(), 5000);
        return {Result::Progress, n};
    }
    void shutdownWrite() override {}

private:
    std::span<const std::byte> input_;
};

constexpr std::string_view kPreface{"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n\0\0\0\4\0\0\0\0\0", 33};

}  // namespace

/// Any bytes after a good opening (or with the first byte odd: from the very start) leave a session
/// that is alive or dead, with no handler left behind, and output within its bound.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) { return 0; }
    std::string input{data[0] % 2 == 0 ? kPreface : ""};
    input.append(reinterpret_cast<const char*>(data + 1), size - 1);

    Options options;
    options.maxReceiveMessage = 64U << 10U;
    Kiln::VirtualClock clock;
    TestService service;
    Router router;
    TestService::addTo(router, service);
    Deadlines deadlines;
    std::vector<Session*> touched;
    const Environment environment{options, clock, router, deadlines, touched};
    {
        Session session{
            environment, std::make_unique<FuzzPipe>(std::as_bytes(std::span{input})), "fuzz"};
        for (int turn = 0; turn < 20 && !session.dead(); ++turn) {
            session.readable();
            session.writable();
            service.push("live");
            clock.advance(std::chrono::seconds(turn));
            deadlines.expire(clock.now());
            session.tick(clock.now());
            if (turn == 15) { session.drain(); }
            if (turn == 17) { session.close(); }
            static_cast<void>(session.flush());
            if (session.openCalls() > options.maxConcurrentStreams) { std::abort(); }
        }
    }
    if (service.handlers != 0 || service.liveCalls() != 0) { std::abort(); }
    return 0;
}
