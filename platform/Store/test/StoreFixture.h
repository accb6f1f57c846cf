#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/KeyedMount.h"
#include "platform/Store/Reader.h"
#include "platform/Store/Writer.h"
#include "test/support/TempDir.h"

namespace Store {

using Strings = std::vector<std::string>;

/// Notes what it is told, as texts, in a journal that several sinks may share.
class NotingSink final : public Sink {
public:
    NotingSink(std::string name, Strings& journal) : name_{std::move(name)}, journal_{journal} {}
    void mountIs(Reader& reader, const std::string& path, TableKind kind) {
        mount = reader.mount(path, "t", kind, *this);
    }
    void keyChanged(std::string_view key) override {
        const auto value = mount.read(key);
        note(std::string{key} + "=" + std::string{value.value_or("gone")});
    }
    void sweepBegun() override { note("begun"); }
    void sweepKey(std::string_view key) override { note("key " + std::string{key}); }
    void sweepLater(std::string_view key) override { note("later " + std::string{key}); }
    void sweepEnded() override { note("ended"); }
    void presentIs(bool present) override { note(present ? "present" : "absent"); }
    void sweepSettled() override { note("settled"); }

    Reader::Mount mount;
    std::function<void(const std::string&)> reaction;  // after each note

private:
    void note(const std::string& text) {
        journal_.push_back(name_ + " " + text);
        if (reaction) { reaction(text); }
    }
    std::string name_;
    Strings& journal_;
};

/// A keeper of a table's keys that notes the changes it is told of.
class NotingMount final : public KeyedMount<std::string> {
public:
    void mountIs(Reader& reader, const std::string& path, TableKind kind = TableKind::table) {
        KeyedMount::mountIs(reader, path, "t", kind);
    }
    std::string value(const std::string& key) const {
        return std::string{readBytes(key).value_or("gone")};
    }
    Strings notes;
    std::function<void(const std::string&)> reaction;

private:
    void changed(const std::string& key) override {
        notes.push_back(key + (has(key) ? " there" : " gone"));
        if (reaction) { reaction(key); }
    }
    void presentChanged() override { notes.push_back(present() ? "present" : "absent"); }
};

class StoreFixture : public testing::Test {
protected:
    StoreFixture() { options.directory = dir.path() / "store"; }

    std::shared_ptr<Environment> openToWrite() {
        std::string error;
        auto environment = Environment::open(options, Access::write, error);
        EXPECT_EQ(error, "");
        return environment;
    }
    std::unique_ptr<Writer> makeWriter() { return std::make_unique<Writer>(openToWrite()); }
    Vel::Ref<Reader> makeReader() { return Vel::make<Reader>(scheduler, options); }
    /// Lets the reader hear of what was committed, and do all there is to do.
    void settle() { scheduler->runUntilIdle(); }
    void settleAfterASecond() {
        clock.advance(std::chrono::seconds{1});
        scheduler->runUntilIdle();
    }

    TestSupport::TempDir dir;
    Options options{.directory = {}, .mapBytes = std::size_t{64} << 20, .logCapacity = 1000};
    Kiln::VirtualClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Strings journal;
};

}  // namespace Store
