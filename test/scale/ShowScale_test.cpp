// Show commands over as many entries as the scale says, while the agent runs as it does in the field.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/AgentHost/test/ControlPeer.h"
#include "test/scale/AgentOnStore.h"
#include "test/support/Scale.h"

namespace Pel::Scale {
namespace {

/// Memory that is the process's own, in bytes; the store's pages do not count.
std::uint64_t ownMemory() {
    std::ifstream status{"/proc/self/status"};
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("RssAnon:")) { return std::stoull(line.substr(8)) * 1024; }
    }
    return 0;
}

class ShowScale : public AgentOnStore {
protected:
    void SetUp() override {
        exportIs(true);
        publish({fecs, fecs, 0, 0, 1});
        ASSERT_NO_FATAL_FAILURE(start());
        while (!exported()) { host->scheduler()->runUntilIdle(); }
    }
    bool exported() const {
        const auto& aft = dynamic_cast<Oc::Agent&>(*host->agent()).aftContainer();
        return aft && aft->fibReady()->fecReady();
    }
    Kiln::TaskStatistics showTask(const std::string& command) const {
        for (const auto& task : host->scheduler()->tasks()) {
            if (task.name == "ShowCommand-" + command) { return task; }
        }
        return {};
    }
    /// Asks for all and reads to the end; answers how often the output held the word.
    std::uint64_t show(const std::string& command,
                       const std::string& format,
                       const std::string& word) {
        AgentHost::ControlPeer peer{config.controlSocket()};
        peer.send(R"({"command":")" + command + R"(","format":")" + format + "\"}\n");
        std::uint64_t found = 0;
        std::string lines;
        std::string output;
        for (bool ended = false; !ended;) {
            // A turn at a time, as in the field: until it is idle it would only wait for its client.
            host->scheduler()->stop();
            host->scheduler()->run();
            const Kiln::TaskStatistics now = showTask(command);
            longest = std::max(longest, now.longestSlice);
            slices = std::max(slices, now.runs);
            peer.receive();
            lines += peer.takeReceived();
            for (std::size_t end = lines.find('\n'); end != std::string::npos && !ended;
                 end = lines.find('\n')) {
                const auto line = nlohmann::json::parse(lines.substr(0, end));
                lines.erase(0, end + 1);
                ended = line.contains("end");
                output += line.value("output", std::string{});
                found += countAndKeepTail(output, word);
            }
            if (++rounds % 64 == 0) { most = std::max(most, ownMemory()); }
        }
        most = std::max(most, ownMemory());
        return found;
    }
    /// Of the text only what the word could begin with is kept.
    static std::uint64_t countAndKeepTail(std::string& text, const std::string& word) {
        std::uint64_t found = 0;
        for (std::size_t at = text.find(word); at != std::string::npos;
             at = text.find(word, at + 1)) {
            ++found;
        }
        text.erase(0, text.size() - std::min(text.size(), word.size() - 1));
        return found;
    }

    const std::uint64_t fecs = TestSupport::scale();
    Kiln::Duration longest{};
    std::uint64_t slices = 0;
    std::uint64_t rounds = 0;
    std::uint64_t most = 0;
};

TEST_F(ShowScale, AllOfItIsPrintedInSmallSlicesWithoutGrowing) {
    const std::uint64_t before = ownMemory();
    EXPECT_EQ(show("showFecExport", "text", "FEC ID: "), fecs);
    EXPECT_EQ(show("showFecExport", "json", "\"programmedId\""), fecs);
    EXPECT_EQ(show("showNextHops", "text", "\n"), fecs + 1) << "a heading, and a line each";
    EXPECT_EQ(show("showNextHops", "json", "\"popTopLabel\""), fecs);
    EXPECT_EQ(show("showGroups", "text", "\n"), fecs + 1);
    EXPECT_EQ(show("showGroups", "json", "\"nextHops\":"), fecs);
    const double ratio = static_cast<double>(most) / static_cast<double>(before);
    std::printf(
        "%lu FECs and next hops: %lu slices, the longest %.3f ms, memory %lu to %lu KiB (%.3f "
        "times)\n",
        fecs,
        slices,
        std::chrono::duration<double, std::milli>(longest).count(),
        before / 1024,
        most / 1024,
        ratio);
    EXPECT_LE(ratio, 1.05);
    EXPECT_GT(slices, 10U);
}

}  // namespace
}  // namespace Pel::Scale
