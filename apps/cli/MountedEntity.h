#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "model/Registration.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Mesa/EntityManager.h"

namespace Pel::Cli {

/// Reads one entity of a store as it is at this moment, for a program that otherwise has no
/// scheduler. `read` gets it for the time of the call: the type's default when nobody has published
/// it. False, with `error` set, when it cannot be read.
template <class T, class Read>
bool readEntity(const std::filesystem::path& directory, Read read, std::string& error) {
    class Waiter final : public Hubdb::Mounter {
    public:
        void doMountsComplete(Hubdb::MountStatus result,
                              const Vel::Ref<Hubdb::EntityManager>& /*manager*/) override {
            status = result;
        }
        std::optional<Hubdb::MountStatus> status;
    };
    registerModelTypes();
    const Kiln::SteadyClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Store::Options options;
    options.directory = directory;
    const auto reader = Vel::make<Store::Reader>(scheduler, options);
    if (!reader->open()) {
        error = reader->lastError();
        return false;
    }
    const auto tables = Vel::make<Mesa::EntityManager>(reader);
    const auto entities =
        Vel::make<Hubdb::EntityManager>("pel", 1, scheduler, reader, reader, tables);
    Waiter waiter;
    const auto group = entities->mountGroup(waiter);
    group->mount(T::kPath, T::kType, "r");
    group->close(false, {}, {});
    scheduler->runUntilIdle();
    const Vel::Ref<Vel::Entity> mounted = entities->entity(T::kPath);
    const auto* const entity = dynamic_cast<const T*>(mounted.get());
    if (waiter.status != Hubdb::mountSuccess_ || entity == nullptr) {
        error = std::string{T::kPath} + " cannot be read";
        return false;
    }
    read(*entity);
    return true;
}

}  // namespace Pel::Cli
