#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <string>

#include "platform/Mesa/EntityManager.h"

namespace Mesa {

/// The paths that a directory mounter has mounted, in order.
class MountedPaths final : public Vel::RefCounted {
public:
    const absl::btree_set<std::string>& paths() const { return paths_; }
    bool pathHas(const std::string& path) const { return paths_.contains(path); }
    Vel::Publisher<const std::string&>& onPathAdded() const { return onPathAdded_; }
    Vel::Publisher<const std::string&>& onPathRemoved() const { return onPathRemoved_; }

    /// The mounter's part.
    void pathIs(const std::string& path);
    void pathDel(const std::string& path);

private:
    absl::btree_set<std::string> paths_;
    mutable Vel::Publisher<const std::string&> onPathAdded_;
    mutable Vel::Publisher<const std::string&> onPathRemoved_;
};

/// Mounts the tables of one type immediately below a directory, as producers make them. A directory
/// is but the common beginning of paths: those above it need no mounting, and it may be empty.
class DirMounter final : public Vel::RefCounted {
public:
    DirMounter(Vel::Ref<EntityManager> entityManager, std::string dirPath, std::string type);
    /// Whether a path counts as mounted only once its table has been read in. Before initialize().
    void notifyOnSyncIs(bool notify) { notifyOnSync_ = notify; }
    /// Whether a table that its producer removes stays mounted, empty, for when it comes again; else
    /// the entity manager lets go of it. Before initialize().
    void neverUnmountIs(bool never) { neverUnmount_ = never; }
    /// Mounts what is there, and from now on what comes.
    void initialize();
    const Vel::Ref<MountedPaths>& mountedPaths() const { return mountedPaths_; }

private:
    void handleTable(const std::string& path);
    void mount(const std::string& path);
    void unmount(const std::string& path);

    const Vel::Ref<EntityManager> entityManager_;
    const std::string begin_;  // of the tables' paths
    const std::string type_;
    const Vel::Ref<MountedPaths> mountedPaths_ = Vel::make<MountedPaths>();
    bool notifyOnSync_ = false;
    bool neverUnmount_ = false;
    Vel::Subscription onTable_;
    absl::btree_map<std::string, Vel::Subscription> onPresent_;  // of what is mounted
};

}  // namespace Mesa
