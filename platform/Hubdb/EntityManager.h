#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Reader.h"
#include "platform/Vel/Entity.h"

namespace Mesa {
class EntityManager;
}

namespace Hubdb {

enum MountStatus { mountSuccess_, mountFailure_ };

/// An entity whose content is published by a producer: mirrored on mount and kept current.
class MirroredEntity : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    /// Takes the published record over and publishes what changed. False when the bytes are no
    /// record of the type: nothing is changed then, and it is traced.
    virtual bool recordIs(std::string_view bytes) = 0;
    /// The producer took the record away: back to the default.
    virtual void recordDel() = 0;
};

/// Which class mirrors a type name. Filled by the model before anything is mounted.
using EntityFactory = std::function<Vel::Ref<MirroredEntity>(const std::string& name)>;
void entityTypeIs(const std::string& type, EntityFactory factory);

class MountGroup;

/// Who wants mounts, and is told when they are done.
class Mounter {
public:
    Mounter() = default;
    Mounter(const Mounter&) = delete;
    Mounter& operator=(const Mounter&) = delete;
    virtual ~Mounter() = default;
    virtual void doMountsComplete(MountStatus status,
                                  const Vel::Ref<class EntityManager>& entityManager) = 0;
};

/// An agent's view of the state database: mounted inputs by path, and the global directory that
/// holds its in-process outputs.
class EntityManager final : public Vel::RefCounted {
public:
    /// @param name names the directory of outputs under the global directory
    /// @param cellId prefix of cell-specific paths, see cellPath()
    EntityManager(std::string name,
                  unsigned cellId,
                  Vel::Ref<Kiln::TaskScheduler> scheduler,
                  Vel::Ref<Store::Reader> state,
                  Vel::Ref<Store::Reader> configuration,
                  Vel::Ref<Mesa::EntityManager> sharedMemory);
    ~EntityManager() override;

    const std::string& name() const { return name_; }
    /// "cell/<id>/" + path.
    std::string cellPath(std::string_view path) const;
    /// The mounted entity of this path, or null.
    Vel::Ref<Vel::Entity> entity(std::string_view path) const;
    template <class T>
    Vel::Ref<T> entity(std::string_view path) const {
        return Vel::refCast<T>(entity(path));
    }
    /// In-process outputs live below it.
    const Vel::Ref<Vel::Dir>& globalDir() const { return globalDir_; }
    const Vel::Ref<Mesa::EntityManager>& sharedMemory() const { return sharedMemory_; }
    const Vel::Ref<Kiln::TaskScheduler>& scheduler() const { return scheduler_; }
    Vel::Ref<MountGroup> mountGroup(Mounter& mounter);

private:
    friend class MountGroup;
    class Mirror;
    Mirror& mirror(std::string_view path) const;
    bool completeMounts();
    std::string name_;
    unsigned cellId_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    std::unique_ptr<Mirror> state_;          // all paths but "mgmt/..."
    std::unique_ptr<Mirror> configuration_;  // "mgmt/..."
    Vel::Ref<Mesa::EntityManager> sharedMemory_;
    Vel::Ref<Vel::Dir> globalDir_;
    std::vector<Vel::Ref<MountGroup>> closing_;  // until their mounts are complete
    std::unique_ptr<Kiln::Task> completion_;
};

/// State-database paths to be mounted together. Closed, it lives until its mounts are complete;
/// what it mounted stays mounted as long as the entity manager. A manager that dies first never
/// calls the mounter; a mounter that dies first cancels.
///
/// Modes: "r" the entity; "ri" the directory with its immediate children; "rD" the directory with
/// all below it, children that come and go included. A change of a child counts as a change of its
/// directory. A path that nobody published is mounted as a default object in memory; nothing is
/// written. A record of another type than the one wanted fails the mount; one that comes later is
/// traced and ignored.
class MountGroup final : public Vel::RefCounted {
public:
    MountGroup(EntityManager& entityManager, Mounter& mounter);
    ~MountGroup() override;
    /// "Vel::Dir" is the type of directories; the children's types come with their records.
    void mount(const std::string& path,
               const std::string& type,
               const std::string& mode,
               unsigned flags = 0);
    /// Mounts, and has doMountsComplete called on the scheduler once all are done; never inside
    /// this call. The arguments are reserved: false, an empty text and no duration.
    void close(bool reserved, const std::string& reservedText, Kiln::Duration reservedDuration);
    /// The mounter is not called any more.
    void cancel() { mounter_ = nullptr; }

private:
    friend class EntityManager;
    struct Wanted {
        std::string path;
        std::string type;
        std::string mode;
    };
    void complete();
    EntityManager& entityManager_;
    Mounter* mounter_;  // null: nobody waits any more
    std::vector<Wanted> wanted_;
};

}  // namespace Hubdb
