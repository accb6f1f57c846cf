#include <fstream>
#include <string>

#include "platform/AgentHost/AgentBase.h"
#include "platform/AgentHost/AgentPlugin.h"
#include "platform/Vel/Errors.h"

namespace {

/// Notes each of its steps in the trace that the test reads, and answers a command.
class GoodAgent final : public AgentHost::AgentBase {
public:
    using AgentBase::AgentBase;
    ~GoodAgent() override { note("gone"); }

    void doInit() override {
        note("doInit");
        if (name() == "throws") { throw Vel::RangeError{"no start today"}; }
        cmdRequestDirSm()->agentCommandCallbackIs("good", [this](const auto&) {
            return AgentHost::CommandReply{"good " + name() + "\n", {}};
        });
        cmdRequestDirSm()->agentCommandCallbackIs(
            "bad",
            [](const auto&) -> AgentHost::CommandReply { throw Vel::RangeError{"bad luck"}; });
        const auto group = entityManager()->mountGroup(*this);
        group->close(false, {}, {});
    }
    void doMountsComplete(Hubdb::MountStatus status,
                          const Vel::Ref<Hubdb::EntityManager>& manager) override {
        note(status == Hubdb::mountSuccess_ && manager == entityManager() ? "mounted"
                                                                          : "not mounted");
    }
    void doReinitialize() override { note("doReinitialize"); }
    void doStop() override { note("doStop"); }
    void doCleanup() override { note("doCleanup"); }
    std::uint16_t gnmiPort() const override { return 4711; }
    /// Later, as one does who has to ask another thread.
    void status(const AgentHost::StatusAnswer& answer) override {
        scheduler()->post([this, answer] {
            answer([this](AgentHost::CliPrinter& to) {
                if (name() == "throws in status") { throw Vel::RangeError{"no status today"}; }
                to.bad("mood        ", "mood", "NOT bad");
                to.endLine();
            });
        });
    }

private:
    void note(const std::string& step) {
        std::ofstream{hostConfig().root / "steps", std::ios::app} << step << '\n';
    }
};

}  // namespace

extern "C" AgentHost::AgentBase* agentFactory(const char* name) {
    if (std::string{name} == "factory throws") { throw Vel::RangeError{"no agent today"}; }
    if (std::string{name} == "factory throws a number") { throw 42; }
    return std::string{name} == "none" ? nullptr : new GoodAgent{name};
}
PEL_AGENT_REVISION();
