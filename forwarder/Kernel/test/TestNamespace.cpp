#include "forwarder/Kernel/test/TestNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>

namespace Pel::Forwarder {

namespace {

int shell(const std::string& command) {
    return std::system(command.c_str());
}  // NOLINT(cert-env33-c): a test

}  // namespace

std::string TestNamespace::unavailable() {
    if (geteuid() != 0) { return "needs root: network namespaces"; }
    const std::string name = "pel-probe-" + std::to_string(getpid());
    if (shell("ip netns add " + name + " 2>/dev/null") != 0) {
        return "ip netns add does not work here";
    }
    shell("ip netns del " + name);
    return {};
}

TestNamespace::TestNamespace() {
    static int counter = 0;
    name_ = "pel-k-" + std::to_string(getpid()) + "-" + std::to_string(++counter);
    EXPECT_EQ(shell("ip netns add " + name_), 0);
    home_ = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int there = open(("/var/run/netns/" + name_).c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(setns(there, CLONE_NEWNET), 0);
    close(there);
    run("ip link set lo up");
}

TestNamespace::~TestNamespace() {
    EXPECT_EQ(setns(home_, CLONE_NEWNET), 0);
    close(home_);
    EXPECT_EQ(shell("ip netns del " + name_), 0);
}

void TestNamespace::run(const std::string& command) const {
    EXPECT_EQ(shell(command), 0) << command;
}

}  // namespace Pel::Forwarder
