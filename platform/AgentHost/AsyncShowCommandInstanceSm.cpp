#include "platform/AgentHost/AsyncShowCommandInstanceSm.h"

#include <utility>

namespace AgentHost {

AsyncShowCommandInstanceSm::AsyncShowCommandInstanceSm(Vel::Ref<AsyncShowCommandAnchor> anchor,
                                                       CommandRequest params)
    : anchor_{std::move(anchor)},
      params_{std::move(params)},
      printer_{Vel::make<CliPrinter>(params_.format)} {
    ++anchor_->instances_;
}

AsyncShowCommandInstanceSm::~AsyncShowCommandInstanceSm() {
    --anchor_->instances_;
}

bool AsyncShowCommandInstanceSm::mustYield() const {
    return printer_->full() || anchor_->scheduler().mustYield();
}

}  // namespace AgentHost
