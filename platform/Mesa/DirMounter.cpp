#include "platform/Mesa/DirMounter.h"

#include <utility>

namespace Mesa {

void MountedPaths::pathIs(const std::string& path) {
    if (paths_.insert(path).second) { onPathAdded_.publish(path); }
}

void MountedPaths::pathDel(const std::string& path) {
    if (paths_.erase(path) > 0) { onPathRemoved_.publish(path); }
}

DirMounter::DirMounter(Vel::Ref<EntityManager> entityManager, std::string dirPath, std::string type)
    : entityManager_{std::move(entityManager)},
      begin_{std::move(dirPath) + "/"},
      type_{std::move(type)} {}

void DirMounter::initialize() {
    const auto& reader = entityManager_->reader();
    onTable_ = reader->onTable().subscribe([this](const std::string& path) { handleTable(path); });
    for (const auto& table : reader->tables(begin_)) { handleTable(table.path); }
}

/// A table came or went.
void DirMounter::handleTable(const std::string& path) {
    const bool below = path.size() > begin_.size() && path.starts_with(begin_) &&
                       path.find('/', begin_.size()) == std::string::npos;
    if (!below) { return; }
    if (entityManager_->reader()->table(path)) {
        mount(path);
    } else if (!neverUnmount_) {
        unmount(path);
    }
}

void DirMounter::mount(const std::string& path) {
    const auto [place, added] = onPresent_.try_emplace(path);
    if (!added) { return; }
    const Vel::Ref<Table> table = entityManager_->tableIs(path, type_);
    if (!table || !notifyOnSync_ || table->present()) { return mountedPaths_->pathIs(path); }
    onPresent_[path] = table->onPresent().subscribe([this, path, table = table.get()] {
        if (table->present()) { mountedPaths_->pathIs(path); }
    });
}

void DirMounter::unmount(const std::string& path) {
    if (onPresent_.erase(path) == 0) { return; }
    entityManager_->entityDel(path);
    mountedPaths_->pathDel(path);
}

}  // namespace Mesa
