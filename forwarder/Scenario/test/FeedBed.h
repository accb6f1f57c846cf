#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Scenario/FileSource.h"
#include "forwarder/Scenario/ScenarioFeed.h"
#include "forwarder/Scenario/test/ParsedScenario.h"
#include "forwarder/Scenario/test/StoreView.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {

/// A forwarder on a store and a clock of its own, and an agent's view of the store.
class FeedBed : public testing::Test {
protected:
    FeedBed() { options.directory = dir.path() / "store"; }

    /// A forwarder (again): another process on the same store. It has not run yet.
    void start(std::unique_ptr<ChangeSource> source) {
        feed.reset();
        scheduler = Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
        std::string error;
        environment = Store::Environment::open(options, Store::Access::write, error);
        ASSERT_NE(environment, nullptr) << error;
        feed = std::make_unique<ScenarioFeed>(
            scheduler, environment, std::move(source), 1U, [this](const std::string& text) {
                told.push_back(text);
            });
        ASSERT_EQ(feed->start(), "");
    }
    void startText(const std::string& text) {
        Parsed parsed = parse(text);
        ASSERT_THAT(parsed.problems, testing::IsEmpty());
        start(std::make_unique<FileSource>(std::move(*parsed.scenario)));
    }
    /// Up to the end of the beginning.
    void play(const std::string& text) {
        startText(text);
        settle();
    }
    void settle() { scheduler->runUntilIdle(); }
    void pass(Kiln::Duration time) {
        clock.advance(time);
        settle();
    }
    StoreView& view() {
        if (view_ == nullptr) { view_ = std::make_unique<StoreView>(options); }
        view_->look();
        return *view_;
    }

    TestSupport::TempDir dir;
    Store::Options options{
        .directory = {}, .mapBytes = std::size_t{256} << 20, .logCapacity = 100'000};
    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler;
    std::shared_ptr<Store::Environment> environment;
    std::unique_ptr<ScenarioFeed> feed;
    std::vector<std::string> told;

private:
    std::unique_ptr<StoreView> view_;
};

}  // namespace Pel::Forwarder
