#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Mesa/EntityManager.h"
#include "platform/Stash/Manager.h"

namespace Pel::Stash {

/// One named collection of a set: entries by key, each naming its deduplicated record by a handle.
/// Entry is a small value with a RecordCodec of Mesa.
template <class Key, class Entry>
class SetCollection final : private Store::KeyedMount<Key> {
public:
    using Base = Store::KeyedMount<Key>;
    using Base::has;
    using Base::keys;
    using Base::nextKey;
    using Base::present;
    using Base::toldLater;

    /// The entry, or nullopt when the key is absent or its entry does not verify.
    std::optional<Entry> entry(const Key& key) const {
        const auto bytes = Base::readBytes(key);
        return bytes ? Mesa::RecordCodec<Entry>::decode(*bytes) : std::nullopt;
    }
    std::size_t size() const { return keys().size(); }
    /// The validator of this collection's store.
    Mem::AnchorValidator* anchorValidator() const { return &validator_; }
    /// An entry of this key was added, changed or deleted.
    Vel::Publisher<const Key&>& onKey() const { return onKey_; }
    Vel::Publisher<>& onPresent() const { return onPresent_; }

    void mountIs(Store::Reader& reader, const std::string& path, const std::string& type) {
        Base::mountIs(reader, path, type, Store::TableKind::stash);
    }

private:
    void changed(const Key& key) override { onKey_.publish(key); }
    void presentChanged() override { onPresent_.publish(); }
    mutable Mem::AnchorValidator validator_;
    mutable Vel::Publisher<const Key&> onKey_;
    mutable Vel::Publisher<> onPresent_;
};

/// A mounted set of the stash: an object with named collections, empty and not ready until the
/// producer's store is there and swept.
class Set : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    /// Mounts its collections, each at "<path>/<collection>"; a name it does not have is a broken
    /// precondition.
    virtual void mountIs(Store::Reader& reader, const std::vector<std::string>& collections) = 0;
    /// Every mounted collection is there and swept.
    virtual bool ready() const = 0;
    Vel::Publisher<>& onReady() const { return onReady_; }

protected:
    mutable Vel::Publisher<> onReady_;
};

/// What is to be mounted at a path: table kind 3 and the names of the collections.
struct MountDescription {
    Mesa::TableKind kind = Mesa::TableKind::stashSet;
    std::vector<std::string> collections;
};

/// Sets to be mounted together. close() yields the set objects at once (in the shared-memory entity
/// manager, by path), empty and not ready.
class MountGroup final : public Vel::RefCounted {
public:
    MountGroup(Vel::Ref<Mesa::EntityManager> entityManager,
               Vel::Ref<Manager> manager,
               std::string stashName);
    void mount(const std::string& path,
               const std::string& type,
               const MountDescription& description);
    void close();
    /// All sets of the group are ready.
    bool ready() const { return ready_; }
    /// ready() changed.
    Vel::Publisher<>& onReady() const { return onReady_; }
    const Vel::Ref<Manager>& storeManager() const { return manager_; }

private:
    void handleSetReady();
    Vel::Ref<Mesa::EntityManager> entityManager_;
    Vel::Ref<Manager> manager_;
    std::string stashName_;
    bool ready_ = false;
    std::vector<Vel::Ref<Set>> sets_;
    std::vector<std::function<void()>> wanted_;
    mutable Vel::Publisher<> onReady_;
    std::vector<Vel::Subscription> subscriptions_;
};

}  // namespace Pel::Stash
