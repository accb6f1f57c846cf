#include "platform/Hubdb/Mirror.h"

#include <utility>
#include <vector>

#include "platform/Blink/Trace.h"
#include "platform/Hubdb/RecordFrame.h"

BLINK_TRACE_HANDLE("Hubdb");

namespace Hubdb {
namespace {

constexpr std::string_view kDirType = "Vel::Dir";

std::map<std::string, EntityFactory>& factories() {
    static std::map<std::string, EntityFactory> all;
    return all;
}

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

/// The directories on the way to a path below the root, the root first; null where there is none.
std::vector<Vel::Ref<Vel::Dir>> way(const Vel::Ref<Vel::Dir>& root,
                                    std::string_view below,
                                    bool create) {
    std::vector<Vel::Ref<Vel::Dir>> dirs{root};
    for (auto slash = below.find('/'); slash != std::string_view::npos; slash = below.find('/')) {
        const std::string name{below.substr(0, slash)};
        below.remove_prefix(slash + 1);
        const Vel::Ref<Vel::Dir>& parent = dirs.back();
        dirs.push_back(create ? parent->entityIs<Vel::Dir>(name) : parent->entity<Vel::Dir>(name));
        if (!dirs.back()) { break; }
    }
    return dirs;
}

/// Reads the published bytes into the entity; what cannot be read is traced.
bool recordIs(const std::string& path, MirroredEntity& entity, std::string_view record) {
    const bool read = entity.recordIs(record);
    if (!read) { TRACE5("{}: malformed record", path); }
    return read;
}

}  // namespace

void entityTypeIs(const std::string& type, EntityFactory factory) {
    factories()[type] = std::move(factory);
}

Vel::Ref<MirroredEntity> makeEntity(const std::string& type, const std::string& name) {
    const auto found = factories().find(type);
    return found == factories().end() ? nullptr : found->second(name);
}

EntityManager::Mirror::Mirror(Vel::Ref<Store::Reader> reader, std::function<void()> settled)
    : reader_{std::move(reader)}, settled_{std::move(settled)} {
    if (reader_) { KeyedMount::mountIs(*reader_, kTablePath, kTableType, Store::TableKind::state); }
}

bool EntityManager::Mirror::ready() const {
    return swept_ || !reader_ || !reader_->open();
}

bool EntityManager::Mirror::mountIs(const std::string& path,
                                    const std::string& type,
                                    const std::string& mode) {
    VEL_ASSERT(mode == "r" || mode == "ri" || mode == "rD");
    VEL_ASSERT(mode == "r" || type == kDirType);
    Mounted& mounted = mounted_[path];
    if (!mounted.entity) {
        const std::string name{lastComponent(path)};
        mounted.type = type;
        mounted.entity = type == kDirType ? Vel::Ref<Vel::Entity>{Vel::make<Vel::Dir>(name)}
                                          : Vel::Ref<Vel::Entity>{makeEntity(type, name)};
        VEL_ASSERT_TEXT(mounted.entity != nullptr,
                        "Hubdb: the type of a mounted path is not registered");
    }
    const Depth depth = mode == "r" ? Depth::self : mode == "ri" ? Depth::children : Depth::all;
    mounted.depth = std::max(mounted.depth, depth);
    const bool same = mounted.type == type && takeMounted(path, mounted);
    if (mounted.depth == Depth::self) { return same; }
    std::optional<std::string> key = path + "/";
    Store::FirstError error;
    while ((key = nextKey(key)) && key->starts_with(path + "/")) {
        error.run(
            [&] { takeChild(*key, std::string_view{*key}.substr(path.size() + 1), mounted); });
    }
    error.rethrow();
    return same;
}

Vel::Ref<Vel::Entity> EntityManager::Mirror::entity(std::string_view path) const {
    const auto found = mounted_.find(path);
    if (found != mounted_.end()) { return found->second.entity; }
    for (auto slash = path.rfind('/'); slash != std::string_view::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        const auto dir = mounted_.find(path.substr(0, slash));
        if (dir == mounted_.end() || dir->second.depth == Depth::self) { continue; }
        const auto dirs =
            way(Vel::refCast<Vel::Dir>(dir->second.entity), path.substr(slash + 1), false);
        return dirs.back() ? dirs.back()->entity(lastComponent(path)) : nullptr;
    }
    return nullptr;
}

/// The store came back: what is published now goes to whatever is mounted. While it is away the
/// entities keep what was last published.
void EntityManager::Mirror::presentChanged() {
    if (!present()) { return; }
    Store::FirstError error;
    std::optional<std::string> key;
    while ((key = nextKey(key))) {
        error.run([&] { take(*key); });
    }
    error.rethrow();
}

void EntityManager::Mirror::settled() {
    swept_ = true;
    settled_();
}

/// Brings whatever is mounted at the path or around it up to date.
bool EntityManager::Mirror::take(const std::string& path) {
    Store::FirstError error;
    const auto exact = mounted_.find(path);
    bool same = true;
    if (exact != mounted_.end()) {
        error.run([&] { same = takeMounted(path, exact->second); });
    }
    for (auto slash = path.rfind('/'); slash != std::string::npos && slash > 0;
         slash = path.rfind('/', slash - 1)) {
        const std::string_view below = std::string_view{path}.substr(slash + 1);
        const auto dir = mounted_.find(std::string_view{path}.substr(0, slash));
        if (dir == mounted_.end()) { continue; }
        error.run([&] { takeChild(path, below, dir->second); });
    }
    error.rethrow();
    return same;
}

bool EntityManager::Mirror::takeMounted(const std::string& path, const Mounted& mounted) {
    const auto entity = Vel::refCast<MirroredEntity>(mounted.entity);
    const auto bytes = readBytes(path);
    if (!bytes) {
        if (entity) { entity->recordDel(); }
        return true;
    }
    const auto frame = RecordFrame::decode(*bytes);
    if (!frame) {
        TRACE5("{}: malformed record", path);
        return true;
    }
    if (frame->type != mounted.type) {
        TRACE5("{}: a record of type {}, mounted as {}", path, frame->type, mounted.type);
        return false;
    }
    if (entity) { recordIs(path, *entity, frame->record); }
    return true;
}

void EntityManager::Mirror::takeChild(const std::string& path,
                                      std::string_view below,
                                      const Mounted& mounted) {
    const bool covered = mounted.depth == Depth::all || (mounted.depth == Depth::children &&
                                                         below.find('/') == std::string_view::npos);
    if (!covered || below.empty()) { return; }
    const auto root = Vel::refCast<Vel::Dir>(mounted.entity);
    if (!has(path)) { return childDel(path, below, root); }
    const auto dirs = way(root, below, true);
    if (!dirs.back()) {
        TRACE5("{}: below an entity that is no directory", path);
        return;
    }
    Store::FirstError error;
    error.run([&] { childIs(path, dirs.back(), lastComponent(below)); });
    for (auto dir = dirs.rbegin(); dir != dirs.rend(); ++dir) {
        error.run([&] { (*dir)->onChange().publish(); });
    }
    error.rethrow();
}

/// Makes or updates one child from its record. One that cannot be read leaves what there is.
void EntityManager::Mirror::childIs(const std::string& path,
                                    const Vel::Ref<Vel::Dir>& dir,
                                    std::string_view name) {
    const auto bytes = readBytes(path);
    const auto frame = bytes ? RecordFrame::decode(*bytes) : std::nullopt;
    if (!frame) {
        if (bytes) { TRACE5("{}: malformed record", path); }
        return;
    }
    const std::string type{frame->type};
    if (type == kDirType) {
        if (!dir->entityIs<Vel::Dir>(std::string{name})) {
            TRACE5("{}: became a directory; ignored", path);
        }
        return;
    }
    const auto known = childTypes_.find(path);
    const auto present = known != childTypes_.end() && known->second == type
                             ? dir->entity<MirroredEntity>(name)
                             : nullptr;
    if (present) {
        recordIs(path, *present, frame->record);
        return;
    }
    const auto made = makeEntity(type, std::string{name});
    if (!made) {
        TRACE5("{}: nothing known of type {}", path, type);
        return;
    }
    if (!recordIs(path, *made, frame->record)) { return; }
    childTypes_[path] = type;
    dir->insert(made);
}

void EntityManager::Mirror::childDel(const std::string& path,
                                     std::string_view below,
                                     const Vel::Ref<Vel::Dir>& root) {
    const auto dirs = way(root, below, false);
    if (!dirs.back()) { return; }
    const auto child = Vel::refCast<MirroredEntity>(dirs.back()->entity(lastComponent(below)));
    childTypes_.erase(path);
    Store::FirstError error;
    // A machine that holds on to the child sees the default, not the last record.
    if (child) {
        error.run([&] { child->recordDel(); });
    }
    error.run([&] { dirs.back()->entityDel(lastComponent(below)); });
    // Directories that were only there for what was below them go with it.
    for (std::size_t i = dirs.size() - 1; i > 0; --i) {
        if (dirs[i]->size() == 0) {
            error.run([&] { dirs[i - 1]->entityDel(dirs[i]->name()); });
        } else {
            error.run([&] { dirs[i - 1]->onChange().publish(); });
        }
    }
    error.rethrow();
}

}  // namespace Hubdb
