#include "PelOpenConfig/PelOpenConfigCliCallback.h"

#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PelOpenConfigCliCallback");

namespace Pel::Oc {
namespace {

constexpr const char* kFecIdParameter = "FECID";

/// The helper prints to the request's printer for the time of a slice: requests take turns.
class PrinterGuard {
public:
    PrinterGuard(CliHelper& helper, AgentHost::CliPrinter& printer) : helper_{helper} {
        helper_.printerIs(&printer);
    }
    PrinterGuard(const PrinterGuard&) = delete;
    PrinterGuard& operator=(const PrinterGuard&) = delete;
    ~PrinterGuard() { helper_.printerIs(nullptr); }

private:
    CliHelper& helper_;
};

}  // namespace

AsyncCliCallback::AsyncCliCallback(std::string name,
                                   Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor)
    : name_{std::move(name)}, anchor_{std::move(anchor)} {}

ShowFecExportAsyncCliCallback::ShowFecExportAsyncCliCallback(
    Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor, Vel::Ref<CliHelper> cliHelper)
    : AsyncCliCallback{kName, std::move(anchor)}, cliHelper_{std::move(cliHelper)} {}

Vel::Ref<AgentHost::AsyncShowCommandInstanceSm> ShowFecExportAsyncCliCallback::createInstanceSm(
    const AgentHost::CommandRequest& params) {
    return Vel::make<ShowFecExportAsyncShowCommandInstanceSm>(anchor(), params, cliHelper_);
}

ShowFecExportAsyncShowCommandInstanceSm::ShowFecExportAsyncShowCommandInstanceSm(
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
    const AgentHost::CommandRequest& params,
    Vel::Ref<CliHelper> cliHelper)
    : AsyncShowCommandInstanceSm{anchor, params}, cliHelper_{std::move(cliHelper)} {}

void ShowFecExportAsyncShowCommandInstanceSm::produceOutput() {
    TRACE9("Socket: {}, command: {}, outputFormat: {}, allOutputProduced: {}, yieldCount: {}",
           params().socket,
           params().command,
           AgentHost::formatName(params().format),
           allOutputProduced(),
           yieldCount_);
    const PrinterGuard guard{*cliHelper_, *printer()};
    const auto fecId = params().parameters.find(kFecIdParameter);
    if (fecId == params().parameters.end()) {
        showAll();
        return;
    }
    TRACE7("FEC ID string: {}", fecId->second);
    cliHelper_->showPelAdjExport(CliHelper::stringToNum(fecId->second), true);
    allOutputProducedIs(true);
}

void ShowFecExportAsyncShowCommandInstanceSm::showAll() {
    const auto& fecs = cliHelper_->flattenFecSet()->fec().keys();
    TRACE7("Flatten fec have {} fecs, which includes top & bottom fecs", fecs.size());
    TRACE7("Current bookmark: {}", bookmark_);
    printer()->openDict({}, "fecs");
    for (auto it = fecs.lower_bound(bookmark_); it != fecs.end();) {
        cliHelper_->showPelAdjExport(*it, false);
        ++it;
        if (it == fecs.end() || !mustYield()) { continue; }
        ++yieldCount_;
        cliHelper_->yieldCountInc();
        TRACE7("Yielding, yieldCount: {}", yieldCount_);
        bookmark_ = *it;
        TRACE7("Setting bookmark: {}", bookmark_);
        return;
    }
    allOutputProducedIs(true);
}

}  // namespace Pel::Oc
