#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "PelOpenConfig/PelOpenConfigCliCallback.h"
#include "PelOpenConfig/test/ExportFixture.h"
#include "platform/AgentHost/AsyncCommandRun.h"

namespace Pel::Oc {

/// Requests of asynchronous show commands, over the producer's store.
class CliFixture : public ExportFixture {
protected:
    using OutputFormat = AgentHost::OutputFormat;
    using Parameters = std::map<std::string, std::string>;
    struct Shown {
        std::string output;
        std::string error;
    };

    static AgentHost::CommandRequest request(const AsyncCliCallback& callback,
                                             OutputFormat format,
                                             Parameters parameters = {}) {
        return {callback.name(), format, std::move(parameters), 17};
    }
    /// What the platform makes of a request.
    Shown serve(AsyncCliCallback& callback, const AgentHost::CommandRequest& params) {
        Shown result;
        AgentHost::AsyncCommandRun run{scheduler, callback.createInstanceSm(params), [] {}};
        while (!run.done()) {
            run.produce();
            scheduler->runUntilIdle();
            result.output += run.takeOutput();
        }
        result.error = run.error();
        return result;
    }
    Shown text(AsyncCliCallback& callback, Parameters parameters = {}) {
        return serve(callback, request(callback, OutputFormat::text, std::move(parameters)));
    }
    Shown structured(AsyncCliCallback& callback, Parameters parameters = {}) {
        return serve(callback, request(callback, OutputFormat::json, std::move(parameters)));
    }
    /// Serves a request a slice of one element at a time; `between` is called after each.
    std::string slowly(AsyncCliCallback& callback,
                       OutputFormat format,
                       const std::function<void()>& between) {
        scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
        const auto machine = callback.createInstanceSm(request(callback, format));
        while (!machine->allOutputProduced()) {
            machine->produceOutput();
            between();
        }
        machine->printer()->end();
        return machine->printer()->takeOutput();
    }
    /// How often each key stands in the dictionary around all entries of a JSON document.
    static std::map<std::string, int> keysIn(const std::string& output) {
        std::map<std::string, int> times;
        const auto json = nlohmann::json::parse(
            output, [&](int depth, nlohmann::json::parse_event_t event, nlohmann::json& key) {
                const bool isEntry = depth == 2 && event == nlohmann::json::parse_event_t::key;
                if (isEntry) { ++times[key.get<std::string>()]; }
                return true;
            });
        EXPECT_TRUE(json.is_object());
        return times;
    }

    Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor =
        Vel::make<AgentHost::AsyncShowCommandAnchor>("anchor", scheduler);
    Vel::Ref<CliHelper> helper = Vel::make<CliHelper>(
        flattenFecSet, stashManager, anchorValidatorCtx->fecAv(), anchorValidatorCtx->nhAv());
};

}  // namespace Pel::Oc
