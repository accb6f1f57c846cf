#include <utility>

#include "platform/Mesa/EntityManager.h"

namespace Mesa {

void MountGroup::mount(const std::string& path, const std::string& type, TableKind kind) {
    VEL_ASSERT(kind == TableKind::table);  // sets of the stash have a mount group of their own
    wanted_.push_back({path, type});
}

void MountGroup::close() {
    for (const auto& [path, type] : std::exchange(wanted_, {})) {
        if (entityManager_->entity(path)) { continue; }  // another group has mounted it
        const Vel::Ref<Table> table = Vel::refCast<Table>(makeTable(type, path));
        VEL_ASSERT_TEXT(table != nullptr, "Mesa: the type of a mounted table is not registered");
        entityManager_->entityIs(path, table);
        table->mountIs(*entityManager_->reader());
    }
}

}  // namespace Mesa
