#pragma once

#include "platform/Gale/RunnabilitySm.h"
#include "platform/Gale/View.h"
#include "platform/Gale/test/TestView.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Kiln/YieldPolicy.h"
#include "platform/Mesa/EntityManager.h"
#include "test/support/TempDir.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Gale {

/// The machine's clock, which a test may push ahead.
class PushedClock final : public Kiln::Clock {
public:
    Kiln::TimePoint now() const override { return clock_.now() + ahead(); }
    std::int64_t wallNanoseconds() const override {
        return clock_.wallNanoseconds() + ahead().count();
    }
    void advance(Kiln::Duration by) { ahead_ += by.count(); }

private:
    Kiln::Duration ahead() const { return Kiln::Duration{ahead_.load()}; }
    Kiln::SteadyClock clock_;
    std::atomic<std::int64_t> ahead_{0};
};

/// A server as an agent has it, over a TestView, with its I/O thread running.
class ServerFixture {
public:
    ServerFixture() {
        viewIs("openconfig", [this](const ViewInputs& inputs) {
            viewInputs = inputs;
            auto made = std::make_unique<TestView>();
            view = made.get();
            return made;
        });
        entityManager->globalDir()->entityIs<Vel::Dir>("agent")->entityIs<Vel::Dir>("AftExport");
        config.wire.port = 0;
    }
    ~ServerFixture() { stop(); }

    void start(std::vector<ExtraProvider> extra = {}) {
        hostConfigIs(config);
        machine = Vel::make<RunnabilitySm>(
            runnabilityDir,
            entityManager,
            ServerConfig{"agent", "AftExport"},
            CustomProviderConfig{scheduler->taskGroupIs("PelOpenConfig-GnmiNotify", 3, 2)},
            std::move(extra),
            nullptr,
            scheduler);
        scheduler->runUntilIdle();
    }
    void stop() {
        if (machine) { machine->handleCleanup(); }
        machine = nullptr;
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(machine->port()); }

    PushedClock clock;
    TestSupport::TempDir dir;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Vel::Ref<Store::Reader> reader =
        Vel::make<Store::Reader>(scheduler, Store::Options{.directory = dir.path() / "store"});
    Vel::Ref<Mesa::EntityManager> tables = Vel::make<Mesa::EntityManager>(reader);
    Vel::Ref<Hubdb::EntityManager> entityManager =
        Vel::make<Hubdb::EntityManager>("agent", 1, scheduler, reader, reader, tables);
    Vel::Ref<Vel::Dir> runnabilityDir = Vel::make<Vel::Dir>("runnabilityDir");
    HostConfig config;
    ViewInputs viewInputs;
    TestView* view = nullptr;
    Vel::Ref<RunnabilitySm> machine;
};

}  // namespace Gale
