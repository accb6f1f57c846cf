#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/Vel/Subscription.h"

namespace Vel {

/// A named object of the state tree. Belongs to the scheduler's thread.
class Entity : public RefCounted {
public:
    explicit Entity(std::string name) : name_{std::move(name)} {}
    const std::string& name() const { return name_; }

private:
    std::string name_;
};

/// A directory of entities by name. Children come and go by name; each coming and going is
/// published with the name. onChange() tells of a change of the directory as a whole, a change
/// inside a child included when the child's keeper says so.
class Dir : public Entity {
public:
    using Entity::Entity;

    /// Finds the child or creates it. Null when a child of another type bears the name.
    template <class T, class... Args>
    Ref<T> entityIs(const std::string& name, Args&&... args) {
        if (const Ref<Entity> present = entity(name)) { return refCast<T>(present); }
        const Ref<T> made = make<T>(name, std::forward<Args>(args)...);
        insert(made);
        return made;  // NOLINT(performance-no-automatic-move): one more count
    }
    Ref<Entity> entity(std::string_view name) const {
        const auto it = entities_.find(name);
        return it == entities_.end() ? Ref<Entity>{} : it->second;
    }
    /// The child if it is there and of the type, else null.
    template <class T>
    Ref<T> entity(std::string_view name) const {
        return refCast<T>(entity(name));
    }
    bool has(std::string_view name) const { return entities_.contains(name); }
    std::size_t size() const { return entities_.size(); }
    const std::map<std::string, Ref<Entity>, std::less<>>& entities() const { return entities_; }

    /// Puts an entity made elsewhere into the directory, in place of any of that name.
    void insert(const Ref<Entity>& entity);
    /// Removes the child; harmless when there is none.
    void entityDel(std::string_view name);
    /// Removes each child once, in order; what a reaction puts back stays.
    void entityDelAll();

    /// A child of this name was added, replaced or removed.
    Publisher<const std::string&>& onEntity() const { return onEntity_; }
    /// The directory as a whole changed.
    Publisher<>& onChange() const { return onChange_; }

private:
    void changed(const std::string& name);

    std::map<std::string, Ref<Entity>, std::less<>> entities_;
    mutable Publisher<const std::string&> onEntity_;
    mutable Publisher<> onChange_;
};

}  // namespace Vel
