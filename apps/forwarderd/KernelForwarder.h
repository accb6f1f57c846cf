#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/Flatten.h"
#include "forwarder/Flatten/MemberCounters.h"
#include "forwarder/Kernel/KernelCounters.h"
#include "forwarder/Kernel/KernelFib.h"
#include "forwarder/Publish/CounterPublish.h"
#include "forwarder/Publish/Publish.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Writer.h"

namespace Pel::Forwarder {

inline constexpr unsigned kDefaultCounterSeconds = 10;

/// The kernel's forwarding state into the store, as three tasks: "KernelSource" follows the kernel,
/// "Publish" writes what changed, from the end of the first download on, and "Counters" polls and
/// writes what was forwarded, once all has been published.
class KernelForwarder {
public:
    struct Options {
        unsigned cellId = 1;  ///< prefix of cell-specific paths
        /// From one poll of the kernel's counters to the next; 0: none.
        Kiln::Duration counterInterval = std::chrono::seconds{kDefaultCounterSeconds};
        /// How long a route table has no change before it is said to have quiesced.
        Kiln::Duration quietTime = Publish::kQuietTime;
    };

    KernelForwarder(Vel::Ref<Kiln::TaskScheduler> scheduler,
                    std::shared_ptr<Store::Environment> store,
                    const Options& options);
    KernelForwarder(const KernelForwarder&) = delete;
    KernelForwarder& operator=(const KernelForwarder&) = delete;

    /// Opens both ends and starts. Empty, or what went wrong.
    std::string start();
    const Publish& publish() const { return publish_; }

private:
    bool follow();
    bool write();
    bool count();
    /// Tells on standard error when publishing stands still, and when it goes on.
    void tellFailure();

    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Store::Writer writer_;
    Fib fib_;
    Flatten flatten_{fib_};
    MemberCounters memberCounters_{fib_, flatten_};
    KernelFib kernel_;
    std::optional<KernelCounters> kernelCounters_;
    Publish publish_;
    std::optional<CounterPublish> counterPublish_;  // once all has been published
    std::string told_;
    Kiln::Task source_;
    Kiln::Task publisher_;
    Kiln::Task counters_;
    Kiln::FdWatch watch_;
    Kiln::FdWatch counterWatch_;
};

}  // namespace Pel::Forwarder
