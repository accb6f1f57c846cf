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

    /// Used by mount groups and directory mounters.
    void entityIs(const std::string& path, const Vel::Ref<Vel::Entity>& entity);
    void entityDel(std::string_view path);
    /// Mounts the table, if nobody has, and answers what is mounted at the path: null when that is
    /// no table. A type that nobody registered is a broken precondition.
    Vel::Ref<Table> tableIs(const std::string& path, const std::string& type);

private:
    Vel::Ref<Store::Reader> reader_;
    Vel::Ref<CollectionControls> collectionControls_;  // from the first mounted table on
    std::map<std::string, Vel::Ref<Vel::Entity>, std::less<>> entities_;
};

/// Tables to be mounted together. close() mounts; a table that no producer has made yet is mounted
/// empty and fills when it appears. A type that nobody registered is a broken precondition. What was
/// mounted stays so when the group goes.
class MountGroup final : public Vel::RefCounted {
public:
    explicit MountGroup(Vel::Ref<EntityManager> entityManager)
        : entityManager_{std::move(entityManager)} {}
    void mount(const std::string& path, const std::string& type, TableKind kind = TableKind::table);
    /// Has onChange() tell also when one of the tables has been read in, or has gone. Before close().
    void notifyOnSyncIs(bool notify) { notifyOnSync_ = notify; }
    void close();
    /// The tables have been mounted by close().
    Vel::Publisher<>& onChange() const { return onChange_; }

private:
    struct Wanted {
        std::string path;
        std::string type;
    };
    Vel::Ref<EntityManager> entityManager_;
    std::vector<Wanted> wanted_;
    bool notifyOnSync_ = false;
    mutable Vel::Publisher<> onChange_;
    std::vector<Vel::Subscription> onPresent_;
};

}  // namespace Mesa
