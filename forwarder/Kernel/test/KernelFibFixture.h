#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "forwarder/Flatten/test/FlattenBed.h"
#include "forwarder/Kernel/KernelFib.h"
#include "forwarder/Kernel/test/TestNamespace.h"

namespace Pel::Forwarder {

/// The real kernel in a namespace of its own: e1 (10.0.1.1/24) and e2 (10.0.2.1/24), whose other
/// ends p1 and p2 stand in the same namespace and are only there to give or take the carrier.
class KernelFibTest : public testing::Test {
protected:
    void SetUp() override {
        const std::string why = TestNamespace::unavailable();
        if (!why.empty()) { GTEST_SKIP() << why; }
        net = std::make_unique<TestNamespace>();
        for (const char* i : {"1", "2"}) {
            const std::string n{i};
            net->run("ip link add e" + n + " type veth peer name p" + n);
            net->run("ip addr add 10.0." + n + ".1/24 dev e" + n);
            net->run("ip addr add 2001:db8:" + n + "::1/64 dev e" + n + " nodad");
            net->run("ip link set p" + n + " up; ip link set e" + n + " up");
            // Comes with the carrier, which the kernel sees to in its own time.
            net->run("for try in $(seq 1200); do ip -6 route show 2001:db8:" + n +
                     "::/64 | grep -q . && exit; sleep 0.1; done; exit 1");
        }
        net->run("ip neigh replace 10.0.1.2 lladdr 02:00:00:00:00:12 dev e1 nud permanent");
    }

    void start(std::size_t receiveBuffer = KernelFib::kDefaultReceiveBuffer) {
        kernel = std::make_unique<KernelFib>(bed.fib, clock, receiveBuffer);
        ASSERT_EQ(kernel->open(), "");
        await("first download", [this] { return kernel->complete(); });
    }

    /// Runs what is there to run; waits for the kernel at most `milliseconds`.
    void turn(int milliseconds) {
        pollfd descriptor{kernel->fd(), POLLIN, 0};
        poll(&descriptor, 1, milliseconds);
        while (kernel->run([this] { return yields; })) {}
        if (kernel->complete()) { bed.settle(); }
    }

    void await(const std::string& what, const std::function<bool()>& reached) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes{2};
        while (!reached()) {
            if (std::chrono::steady_clock::now() > deadline) {
                FAIL() << what << " not reached; " << bed.routes.size() << " routes, "
                       << bed.fecs.size() << " FECs, 192.0.2.0/24: "
                       << testing::PrintToString(bed.members("192.0.2.0/24"));
            }
            turn(20);
        }
    }
    void awaitMembers(const std::string& prefix, const std::vector<std::string>& want) {
        await(prefix + " over " + testing::PrintToString(want),
              [&] { return bed.members(prefix) == want; });
    }

    Kiln::SteadyClock clock;
    std::unique_ptr<TestNamespace> net;
    FlattenBed bed;
    std::unique_ptr<KernelFib> kernel;
    bool yields = false;
};

}  // namespace Pel::Forwarder
