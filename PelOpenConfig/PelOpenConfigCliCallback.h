#pragma once

#include <cstdint>
#include <string>

#include "PelOpenConfig/PelOpenConfigCliHelper.h"
#include "platform/AgentHost/AsyncCommandCallback.h"

namespace Pel::Oc {

/// An asynchronous show command of this agent: its name, and the anchor of its requests.
class AsyncCliCallback : public AgentHost::AsyncCommandCallback {
public:
    AsyncCliCallback(std::string name, Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor);
    const std::string& name() const { return name_; }
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor() const { return anchor_; }

private:
    std::string name_;
    Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor_;
};

/// "showFecExport": prints every top FEC of the flattened set in the order of the ids, or the one
/// that the parameter "FECID" names. What a request prints, form by form, is in docs/show.md.
class ShowFecExportAsyncCliCallback final : public AsyncCliCallback {
public:
    static constexpr const char* kName = "showFecExport";

    ShowFecExportAsyncCliCallback(Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor,
                                  Vel::Ref<CliHelper> cliHelper);
    Vel::Ref<AgentHost::AsyncShowCommandInstanceSm> createInstanceSm(
        const AgentHost::CommandRequest& params) override;

private:
    Vel::Ref<CliHelper> cliHelper_;
};

/// Serves one request of "showFecExport". The set may change between two slices: a FEC that is in
/// it all the time is printed once, one that comes or goes meanwhile once or not at all.
class ShowFecExportAsyncShowCommandInstanceSm final : public AgentHost::AsyncShowCommandInstanceSm {
public:
    ShowFecExportAsyncShowCommandInstanceSm(
        const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
        const AgentHost::CommandRequest& params,
        Vel::Ref<CliHelper> cliHelper);

    void produceOutput() override;
    /// The FEC id at which the next slice starts.
    FecId bookmark() const { return bookmark_; }
    /// How many times the request has yielded.
    std::uint64_t yieldCount() const { return yieldCount_; }

private:
    void showAll();

    Vel::Ref<CliHelper> cliHelper_;
    FecId bookmark_;
    std::uint64_t yieldCount_ = 0;
};

}  // namespace Pel::Oc
