#include "PelOpenConfig/PelOpenConfigCliCallback.h"

#include "model/Aft/NextHopIndex.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PelOpenConfigCliCallback");

namespace Pel::Oc {

AsyncCliCallback::AsyncCliCallback(std::string name,
                                   Vel::Ref<AgentHost::AsyncShowCommandAnchor> anchor)
    : name_{std::move(name)}, anchor_{std::move(anchor)} {}

template <class Key>
KeyedShowCommandInstanceSm<Key>::KeyedShowCommandInstanceSm(
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
    const AgentHost::CommandRequest& params,
    std::string parameter)
    : AsyncShowCommandInstanceSm{anchor, params}, parameter_{std::move(parameter)} {}

template <class Key>
void KeyedShowCommandInstanceSm<Key>::produceOutput() {
    TRACE9("Socket: {}, command: {}, outputFormat: {}, allOutputProduced: {}, yieldCount: {}",
           params().socket,
           params().command,
           AgentHost::formatName(params().format),
           allOutputProduced(),
           yieldCount_);
    const auto one = params().parameters.find(parameter_);
    if (one == params().parameters.end()) {
        showAll();
        return;
    }
    showOne(one->second);
    allOutputProducedIs(true);
}

template <class Key>
void KeyedShowCommandInstanceSm<Key>::showAll() {
    TRACE7("Current bookmark: {}", bookmark_);
    if (!begun_) { begin(); }
    begun_ = true;
    auto key = has(bookmark_) ? std::optional<Key>{bookmark_} : nextKey(bookmark_);
    while (key) {
        show(*key);
        key = nextKey(key);
        if (!key || !mustYield()) { continue; }
        ++yieldCount_;
        handleYield();
        TRACE7("Yielding, yieldCount: {}", yieldCount_);
        bookmark_ = *key;
        TRACE7("Setting bookmark: {}", bookmark_);
        return;
    }
    allOutputProducedIs(true);
}

template class KeyedShowCommandInstanceSm<FecId>;
template class KeyedShowCommandInstanceSm<OcApi::NextHopIndex>;
template class KeyedShowCommandInstanceSm<OcApi::NextHopGroupId>;
template class KeyedShowCommandInstanceSm<std::string>;

ShowFecExportAsyncShowCommandInstanceSm::ShowFecExportAsyncShowCommandInstanceSm(
    const Vel::Ref<AgentHost::AsyncShowCommandAnchor>& anchor,
    const AgentHost::CommandRequest& params,
    Vel::Ref<CliHelper> cliHelper)
    : KeyedShowCommandInstanceSm{anchor, params, "FECID"}, cliHelper_{std::move(cliHelper)} {}

void ShowFecExportAsyncShowCommandInstanceSm::produceOutput() {
    const CliHelper::PrinterGuard guard{*cliHelper_, *printer()};
    KeyedShowCommandInstanceSm::produceOutput();
}

void ShowFecExportAsyncShowCommandInstanceSm::showAll() {
    TRACE7("Flatten fec have {} fecs, which includes top & bottom fecs",
           cliHelper_->flattenFecSet()->fec().size());
    KeyedShowCommandInstanceSm::showAll();
}

void ShowFecExportAsyncShowCommandInstanceSm::showOne(const std::string& text) {
    TRACE7("FEC ID string: {}", text);
    cliHelper_->showPelAdjExport(CliHelper::stringToNum(text), true);
}

void ShowFecExportAsyncShowCommandInstanceSm::begin() {
    printer()->openDict({}, "fecs");
}

bool ShowFecExportAsyncShowCommandInstanceSm::has(const FecId& key) const {
    return cliHelper_->flattenFecSet()->fec().has(key);
}

std::optional<FecId> ShowFecExportAsyncShowCommandInstanceSm::nextKey(
    const std::optional<FecId>& after) const {
    return cliHelper_->flattenFecSet()->fec().nextKey(after);
}

void ShowFecExportAsyncShowCommandInstanceSm::show(const FecId& key) {
    cliHelper_->showPelAdjExport(key, false);
}

void ShowFecExportAsyncShowCommandInstanceSm::handleYield() {
    cliHelper_->yieldCountInc();
}

}  // namespace Pel::Oc
