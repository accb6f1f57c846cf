#include "platform/Stash/Set.h"

#include <algorithm>
#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("Stash");

namespace Pel::Stash {

MountGroup::MountGroup(Vel::Ref<Mesa::EntityManager> entityManager,
                       Vel::Ref<Manager> manager,
                       std::string stashName)
    : entityManager_{std::move(entityManager)},
      manager_{std::move(manager)},
      stashName_{std::move(stashName)} {}

void MountGroup::mount(const std::string& path,
                       const std::string& type,
                       const MountDescription& description) {
    VEL_ASSERT(description.kind == Mesa::TableKind::stashSet);
    wanted_.push_back([this, path, type, collections = description.collections] {
        const Vel::Ref<Set> set = Vel::refCast<Set>(Mesa::makeTable(type, path));
        VEL_ASSERT_TEXT(set != nullptr, "Stash: the type of a mounted set is not registered");
        TRACE9("stash {}: mounting {}", stashName_, path);
        subscriptions_.push_back(set->onReady().subscribe([this] { handleSetReady(); }));
        sets_.push_back(set);
        entityManager_->entityIs(path, set);
        set->mountIs(*entityManager_->reader(), collections);
    });
}

void MountGroup::close() {
    for (const auto& mountOne : std::exchange(wanted_, {})) { mountOne(); }
    handleSetReady();
}

void MountGroup::handleSetReady() {
    const bool ready =
        !sets_.empty() && std::all_of(sets_.begin(), sets_.end(), [](const Vel::Ref<Set>& set) {
            return set->ready();
        });
    if (ready == ready_) { return; }
    ready_ = ready;
    TRACE7("stash {} ready: {}", stashName_, ready_);
    onReady_.publish();
}

}  // namespace Pel::Stash
