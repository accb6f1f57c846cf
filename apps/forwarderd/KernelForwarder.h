#pragma once

#include <memory>
#include <string>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/Flatten.h"
#include "forwarder/Kernel/KernelFib.h"
#include "forwarder/Publish/Publish.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Writer.h"

namespace Pel::Forwarder {

/// The kernel's forwarding state into the store, as two tasks: "KernelSource" follows the kernel,
/// "Publish" writes what changed, from the end of the first download on.
class KernelForwarder {
public:
    /// @param cellId prefix of cell-specific paths
    KernelForwarder(Vel::Ref<Kiln::TaskScheduler> scheduler,
                    std::shared_ptr<Store::Environment> store,
                    unsigned cellId);
    KernelForwarder(const KernelForwarder&) = delete;
    KernelForwarder& operator=(const KernelForwarder&) = delete;

    /// Opens both ends and starts. Empty, or what went wrong.
    std::string start();
    const Publish& publish() const { return publish_; }

private:
    bool follow();
    bool write();
    /// Tells on standard error when publishing stands still, and when it goes on.
    void tellFailure();

    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Store::Writer writer_;
    Fib fib_;
    Flatten flatten_{fib_};
    KernelFib kernel_;
    Publish publish_;
    std::string told_;
    Kiln::Task source_;
    Kiln::Task publisher_;
    Kiln::FdWatch watch_;
};

}  // namespace Pel::Forwarder
