#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "forwarder/Flatten/test/FlattenBed.h"
#include "forwarder/Publish/Publish.h"
#include "platform/Kiln/Clock.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Pel::Forwarder {

/// A forwarder from its model to a store of its own.
class PublishBed : public testing::Test {
protected:
    PublishBed() { start(); }

    /// A forwarder (again): a new model, what is published read back.
    void start(std::size_t mapBytes = std::size_t{64} << 20) {
        publish.reset();
        writer.reset();
        bed = std::make_unique<FlattenBed>();
        options.directory = dir.path() / "store";
        options.mapBytes = mapBytes;
        std::string error;
        auto environment = Store::Environment::open(options, Store::Access::write, error);
        ASSERT_NE(environment, nullptr) << error;
        writer = std::make_unique<Store::Writer>(environment);
        publish = std::make_unique<Publish>(bed->flatten, *writer, clock, 1U, quietTime);
        ASSERT_EQ(publish->open(), "");
    }
    void settle() {
        while (publish->run([this] { return yields; })) {}
    }

    TestSupport::TempDir dir;
    Store::Options options;
    Kiln::VirtualClock clock;
    std::unique_ptr<FlattenBed> bed;
    std::unique_ptr<Store::Writer> writer;
    std::unique_ptr<Publish> publish;
    bool yields = false;
    Kiln::Duration quietTime = Publish::kQuietTime;  // of the next start
};

}  // namespace Pel::Forwarder
