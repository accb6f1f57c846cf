#include "PelOpenConfig/ConfigMergeSm.h"

#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("ConfigMergeSm");

namespace Pel::Oc {

ConfigMergeSm::ConfigMergeSm(Vel::Ref<const Vel::Dir> sources,
                             const Lmo::SmControl& control,
                             const std::string& taskName)
    : sources_{std::move(sources)} {
    if (control.synchronous == Lmo::Synchronous::synchronous) { return; }
    VEL_ASSERT(control.scheduler != nullptr);
    task_ = std::make_unique<Kiln::Task>(control.scheduler, taskName, control.taskPriority, [this] {
        if (hasNotificationActive()) { merge(); }
        return false;
    });
}

void ConfigMergeSm::handleInitialized(Vel::Publisher<>* configured) {
    if (configured != nullptr) {
        onConfigured_ = configured->subscribe(this, &ConfigMergeSm::handleConfig);
    }
    if (sources_) {
        onSources_ = sources_->onChange().subscribe(this, &ConfigMergeSm::handleConfig);
    }
    merge();
}

void ConfigMergeSm::handleConfig() {
    if (task_) {
        task_->schedule();
    } else {
        merge();
    }
}

void ConfigMergeSm::merge() {
    begin();
    if (sources_) { addAll(*sources_, ""); }
    foreign_ = std::exchange(foreignSoFar_, {});
    end();  // the last step: who is told may let go of the machine
}

void ConfigMergeSm::addAll(const Vel::Dir& dir, const std::string& path) {
    for (const auto& [name, child] : dir.entities()) {
        std::string childPath = path;
        if (!path.empty()) { childPath += '/'; }
        childPath += name;
        if (const auto below = Vel::refCast<Vel::Dir>(child)) {
            addAll(*below, childPath);
        } else if (!add(*child)) {
            foreignSoFar_.insert(childPath);
            if (!foreign_.contains(childPath)) {
                TRACE5(
                    "{}: {} is no source of configuration; ignored", sources_->name(), childPath);
            }
        }
    }
}

}  // namespace Pel::Oc
