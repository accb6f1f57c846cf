// The judge on a stream of the real agent: clean as it was recorded, and every seeded fault is found by its own rule.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "test/checker/Play.h"
#include "test/checker/StockStream.h"
#include "test/checker/test/ChurnScenario.h"
#include "test/checker/test/Faults.h"
#include "test/processes/RunningSystem.h"
#include "test/support/TempDir.h"

namespace Checker {
namespace {

constexpr unsigned kSteps = 200;
constexpr std::size_t kEnough = 2500;  // messages; of 200 steps come about 3,700
constexpr std::chrono::seconds kPatience{120};

/// The forwarder plays the scenario, the agent exports, a stock client records; then a ONCE.
class Recorded {
public:
    Recorded() {
        const std::string begin = file("begin.yaml", ChurnScenario::beginning());
        const std::string churn = file("churn.yaml", ChurnScenario::withChurn(kSteps));
        require(system_.startAgent());
        require(system_.startForwarder({"--scenario", begin}));
        // Everything is there before the recording begins: the prefixes come last.
        const bool published = TestProcesses::waitUntil(kPatience, [this] {
            require(system_.died());
            return once().messages.size() > ChurnScenario::entriesAtBeginning();
        });
        require(published ? "" : "the beginning was not exported in time");
        require(system_.stopForwarder());
        const auto begun = std::chrono::steady_clock::now();
        live = record([&](const Stream& so) {
            if (so.messages.back().response.has_sync_response()) {
                require(system_.startForwarder({"--scenario", churn}));
            }
            // The flags of the forwarder's second start and the like come besides.
            require(std::chrono::steady_clock::now() < begun + kPatience ? ""
                                                                         : "no end of the churn");
            return so.messages.back().response.ShortDebugString().find(ChurnScenario::kMarker) ==
                   std::string::npos;
        });
        require(system_.stopForwarder());
        end = once();
    }

    Stream live;
    Stream end;

private:
    std::string file(const char* name, const std::string& text) {
        const auto path = directory_.path() / name;
        std::ofstream{path} << text;
        return path.string();
    }
    static void require(const std::string& problem) {
        if (!problem.empty()) { throw std::runtime_error{problem}; }
    }
    template <class Going>
    Stream record(Going going, bool isOnce = false) {
        Stream stream;
        StockStream call;
        stream.end = call.run({.server = system_.address(), .paths = {}, .once = isOnce},
                              [&](std::int64_t received, std::string_view bytes) {
                                  Stream::Message& message = stream.messages.emplace_back();
                                  message.received = received;
                                  message.response.ParseFromString(std::string{bytes});
                                  return going(stream);
                              });
        return stream;
    }
    Stream once() {
        return record([](const Stream&) { return true; }, true);
    }

    TestSupport::TempDir directory_;
    TestProcesses::RunningSystem system_;
};

/// A machine that stood still for seconds has several changes of an entry become one: then once more.
const Recorded& recorded() {
    static const auto made = [] {
        auto attempt = std::make_unique<Recorded>();
        for (int i = 0; i < 3 && attempt->live.messages.size() < kEnough; ++i) {
            attempt = std::make_unique<Recorded>();
        }
        return attempt;
    }();
    return *made;
}

std::string lines(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += finding.line() + "\n";
        if (text.size() > 4000) { break; }
    }
    return text;
}

TEST(RealStream, IsCleanThroughoutAndLeadsToTheTruth) {
    EXPECT_GE(recorded().live.messages.size(), kEnough);
    const auto findings = recorded().live.check({.quietStart = true}, recorded().end);
    EXPECT_TRUE(findings.empty()) << lines(findings);
    const auto once = recorded().end.check({.quietStart = true, .once = true});
    EXPECT_TRUE(once.empty()) << lines(once);
}

class SeededFault : public testing::TestWithParam<Fault> {};

TEST_P(SeededFault, IsFoundByItsRuleAlone) {
    Stream stream = recorded().live;
    ASSERT_TRUE(GetParam().seed(stream)) << "the stream has no place for it";
    const auto findings = stream.check({}, recorded().end);
    EXPECT_EQ(rulesOf(findings), ruleName(GetParam().rule)) << lines(findings);
}

INSTANTIATE_TEST_SUITE_P(, SeededFault, testing::ValuesIn(faults()), [](const auto& row) {
    return std::string{row.param.name};
});

}  // namespace
}  // namespace Checker
