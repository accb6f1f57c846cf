#include "platform/Mesa/EntityManager.h"

namespace Mesa {

Vel::Ref<Vel::Entity> EntityManager::entity(std::string_view path) const {
    const auto found = entities_.find(path);
    return found == entities_.end() ? Vel::Ref<Vel::Entity>{} : found->second;
}

void EntityManager::entityIs(const std::string& path, const Vel::Ref<Vel::Entity>& entity) {
    VEL_ASSERT(entity != nullptr);
    entities_[path] = entity;
}

void EntityManager::entityDel(std::string_view path) {
    const auto found = entities_.find(path);
    if (found == entities_.end()) { return; }
    const Vel::Ref<Vel::Entity> keep = found->second;  // dies after the map is consistent again
    entities_.erase(found);
}

Vel::Ref<Table> EntityManager::tableIs(const std::string& path, const std::string& type) {
    if (const auto present = entity(path)) { return Vel::refCast<Table>(present); }
    auto table = Vel::refCast<Table>(makeTable(type, path));
    VEL_ASSERT_TEXT(table != nullptr, "Mesa: the type of a mounted table is not registered");
    if (!collectionControls_) { collectionControls_ = Vel::make<CollectionControls>(*reader_); }
    table->collectionControlsAre(collectionControls_);
    entityIs(path, table);
    table->mountIs(*reader_);
    return table;
}

}  // namespace Mesa
