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

}  // namespace Mesa
