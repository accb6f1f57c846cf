#include <utility>

#include "platform/Mesa/EntityManager.h"

namespace Mesa {

void MountGroup::mount(const std::string& path, const std::string& type, TableKind kind) {
    VEL_ASSERT(kind == TableKind::table);  // sets of the stash have a mount group of their own
    wanted_.push_back({path, type});
}

void MountGroup::close() {
    for (const auto& [path, type] : std::exchange(wanted_, {})) {
        const Vel::Ref<Table> table = entityManager_->tableIs(path, type);
        if (!table || !notifyOnSync_) { continue; }
        onPresent_.push_back(table->onPresent().subscribe([this] { onChange_.publish(); }));
    }
    onChange_.publish();
}

}  // namespace Mesa
