#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mesa/Table.h"
#include "platform/Store/Reader.h"

namespace Mesa {

/// Table kinds of a mount: 1 a keyed table, 3 a stash set with named collections.
enum class TableKind { table = 1, stashSet = 3 };

/// The mounted tables of one agent, by path.
class EntityManager final : public Vel::RefCounted {
public:
    explicit EntityManager(Vel::Ref<Store::Reader> reader) : reader_{std::move(reader)} {}
    /// The mounted table of this path, or null.
    Vel::Ref<Vel::Entity> entity(std::string_view path) const;
    template <class T>
    Vel::Ref<T> entity(std::string_view path) const {
        return Vel::refCast<T>(entity(path));
    }
    const std::map<std::string, Vel::Ref<Vel::Entity>, std::less<>>& entities() const {
        return entities_;
    }
    const Vel::Ref<Store::Reader>& reader() const { return reader_; }

    /// Used by mount groups.
    void entityIs(const std::string& path, const Vel::Ref<Vel::Entity>& entity);
    void entityDel(std::string_view path);

private:
    Vel::Ref<Store::Reader> reader_;
    std::map<std::string, Vel::Ref<Vel::Entity>, std::less<>> entities_;
};

/// Tables to be mounted together. close() mounts; a table that no producer has made yet is mounted
/// empty and fills when it appears. A type that nobody registered is a broken precondition.
class MountGroup final : public Vel::RefCounted {
public:
    explicit MountGroup(Vel::Ref<EntityManager> entityManager)
        : entityManager_{std::move(entityManager)} {}
    void mount(const std::string& path, const std::string& type, TableKind kind = TableKind::table);
    void close();

private:
    struct Wanted {
        std::string path;
        std::string type;
    };
    Vel::Ref<EntityManager> entityManager_;
    std::vector<Wanted> wanted_;
};

}  // namespace Mesa
