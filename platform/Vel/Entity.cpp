#include "platform/Vel/Entity.h"

#include <atomic>
#include <exception>
#include <thread>
#include <utility>
#include <vector>

namespace Vel {
namespace {
std::atomic<std::thread::id> entityThread;
}

void assertEntityThread() {
    std::thread::id none;
    if (!entityThread.compare_exchange_strong(none, std::this_thread::get_id())) {
        VEL_ASSERT(none == std::this_thread::get_id());
    }
}

void releaseEntityThread() {
    entityThread.store(std::thread::id{});
}

void Dir::insert(const Ref<Entity>& entity) {
    VEL_ASSERT(entity != nullptr);
    assertEntityThread();
    const std::string name = entity->name();
    Ref<Entity>& place = entities_[name];
    const Ref<Entity> replaced = std::exchange(place, entity);  // lives until all have been told
    changed(name);
}

void Dir::entityDel(std::string_view name) {
    const auto it = entities_.find(name);
    if (it == entities_.end()) { return; }
    const auto removed = entities_.extract(it);
    changed(removed.key());
}

void Dir::entityDelAll() {
    std::vector<std::string> names;
    for (const auto& [name, entity] : entities_) { names.push_back(name); }
    const Ref<Dir> keep = keepAlive(this);
    for (const std::string& name : names) { entityDel(name); }
}

void Dir::changed(const std::string& name) {
    const Ref<Dir> keep = keepAlive(this);  // a reaction may let go of the directory
    std::exception_ptr first;
    try {
        onEntity_.publish(name);
    } catch (...) { first = std::current_exception(); }
    onChange_.publish();
    if (first) { std::rethrow_exception(first); }
}

}  // namespace Vel
