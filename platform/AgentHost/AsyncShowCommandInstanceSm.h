#pragma once

#include "platform/AgentHost/AsyncShowCommandAnchor.h"
#include "platform/AgentHost/CliPrinter.h"
#include "platform/AgentHost/CommandRequest.h"
#include "platform/Vel/Sm.h"

namespace AgentHost {

/// Serves one request of an asynchronous show command. Whoever took the request calls
/// produceOutput() as often as the client has room for more, until allOutputProduced(); letting go
/// of the machine cancels the request.
class AsyncShowCommandInstanceSm : public Vel::Sm {
public:
    AsyncShowCommandInstanceSm(Vel::Ref<AsyncShowCommandAnchor> anchor, CommandRequest params);
    ~AsyncShowCommandInstanceSm() override;

    /// Prints some: until all is printed, or mustYield() says so. Called again, it goes on where it
    /// stopped. What it throws ends the request with an error.
    virtual void produceOutput() = 0;
    bool allOutputProduced() const { return allOutputProduced_; }
    const CommandRequest& params() const { return params_; }
    const Vel::Ref<CliPrinter>& printer() const { return printer_; }

protected:
    /// To be asked after each element: the slice is over, or the printer holds enough.
    bool mustYield() const;
    void allOutputProducedIs(bool all) { allOutputProduced_ = all; }

private:
    Vel::Ref<AsyncShowCommandAnchor> anchor_;
    CommandRequest params_;
    Vel::Ref<CliPrinter> printer_;
    bool allOutputProduced_ = false;
};

}  // namespace AgentHost
