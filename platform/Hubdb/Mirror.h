#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/Hubdb/EntityManager.h"
#include "platform/Store/KeyedMount.h"

namespace Hubdb {

/// Null when the type is unknown.
Vel::Ref<MirroredEntity> makeEntity(const std::string& type, const std::string& name);

/// The mounted paths of one environment: keeps their entities equal to the published records.
class EntityManager::Mirror final : private Store::KeyedMount<std::string> {
public:
    /// @param changed called when the first sweep has settled and when the store came or went
    Mirror(Vel::Ref<Store::Reader> reader, std::function<void()> settled);

    /// What is published at present can be relied on: swept, or there is no store.
    bool ready() const;
    /// Mounts a path (more than once: the first one's entity serves all) and takes over what is
    /// published. False when a record of another type is there; the path is mounted all the same.
    bool mountIs(const std::string& path, const std::string& type, const std::string& mode);
    /// The entity of a mounted path or below a mounted directory, or null.
    Vel::Ref<Vel::Entity> entity(std::string_view path) const;

private:
    enum class Depth { self, children, all };
    struct Mounted {
        Vel::Ref<Vel::Entity> entity;
        std::string type;
        Depth depth = Depth::self;
    };

    void changed(const std::string& path) override { take(path); }
    void presentChanged() override;
    void settled() override;

    bool take(const std::string& path);
    bool takeMounted(const std::string& path, const Mounted& mounted);
    void takeChild(const std::string& path, std::string_view below, const Mounted& mounted);
    void childDel(const std::string& path, std::string_view below, const Vel::Ref<Vel::Dir>& root);
    void childIs(const std::string& path, const Vel::Ref<Vel::Dir>& dir, std::string_view name);

    Vel::Ref<Store::Reader> reader_;
    std::function<void()> settled_;
    bool swept_ = false;
    std::map<std::string, Mounted, std::less<>> mounted_;
    std::map<std::string, std::string, std::less<>> childTypes_;  // by full path
};

}  // namespace Hubdb
