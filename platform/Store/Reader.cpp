#include "platform/Store/Reader.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Store/ReaderState.h"

BLINK_TRACE_HANDLE("Store");

namespace Store {
namespace {

constexpr Kiln::TaskPriority kPumpPriority = 2;
constexpr std::chrono::seconds kLookInterval{1};

}  // namespace

Reader::Mount::Mount() = default;
Reader::Mount::Mount(std::shared_ptr<Impl> impl) : impl_{std::move(impl)} {}
Reader::Mount::Mount(Mount&&) noexcept = default;

Reader::Mount& Reader::Mount::operator=(Mount&& other) noexcept {
    std::swap(impl_, other.impl_);
    return *this;
}

Reader::Mount::~Mount() {
    if (impl_ == nullptr) { return; }
    impl_->sink = nullptr;
    if (impl_->state != nullptr) { impl_->state->unmount(*impl_); }
}

std::optional<RecordView> Reader::Mount::Impl::record(std::string_view key) const {
    if (state == nullptr || table == kRegistry) { return std::nullopt; }
    return state->snapshot.record(table, key);
}

std::optional<std::string_view> Reader::Mount::read(std::string_view key) const {
    const auto record = impl_ == nullptr ? std::nullopt : impl_->record(key);
    return record ? std::optional{record->value} : std::nullopt;
}

bool Reader::Mount::toldLater(std::string_view key) const {
    const auto record = impl_ == nullptr ? std::nullopt : impl_->record(key);
    return record && record->sequence > impl_->state->reader.position_;
}

bool Reader::Mount::present() const {
    return impl_ != nullptr && impl_->present;
}

TableId Reader::Mount::table() const {
    return impl_ == nullptr ? kRegistry : impl_->table;
}

Reader::Reader(Vel::Ref<Kiln::TaskScheduler> scheduler, Options options)
    : options_{std::move(options)} {
    state_ = std::make_unique<State>(*this, scheduler);
    state_->openStore();
    state_->watch.scheduleAfter(kLookInterval);
}

Reader::~Reader() = default;

Reader::Mount Reader::mount(std::string_view path,
                            std::string_view type,
                            TableKind kind,
                            Sink& sink) {
    auto impl = std::make_shared<Mount::Impl>();
    impl->state = state_.get();
    impl->sink = &sink;
    impl->path = path;
    impl->type = type;
    impl->kind = kind;
    state_->mounts.push_back(impl);
    state_->mounted = true;
    state_->caughtUp = false;
    state_->pump.schedule();
    return Mount{std::move(impl)};
}

std::optional<std::string_view> Reader::read(TableId table, std::string_view key) {
    const auto record = state_->snapshot.record(table, key);
    return record ? std::optional{record->value} : std::nullopt;
}

std::optional<TableInfo> Reader::table(std::string_view path) {
    return state_->table(path);
}

std::vector<TableInfo> Reader::tables(std::string_view prefix) {
    return state_->tables(prefix);
}

bool Reader::caughtUp() const {
    return environment_ != nullptr && state_->caughtUp;
}

std::uint64_t Reader::generation() const {
    return environment_ == nullptr ? 0 : environment_->generation();
}

std::uint64_t Reader::sinkFailures() const {
    return state_->sinkFailures;
}

Reader::State::State(Reader& owner, const Vel::Ref<Kiln::TaskScheduler>& taskScheduler)
    : reader{owner},
      scheduler{taskScheduler},
      pump{taskScheduler, "StorePump", kPumpPriority, [this] { return run(); }},
      watch{taskScheduler, "StoreWatch", kPumpPriority, [this] { return look(); }},
      onSliceEnd{taskScheduler->onSliceEnd().subscribe([this] { snapshot.reset(); })} {}

Reader::State::~State() {
    for (const auto& mount : mounts) { mount->state = nullptr; }
}

void Reader::State::openStore() {
    reader.environment_ = Environment::open(reader.options_, Access::read, reader.lastError_);
    if (reader.environment_ == nullptr) { return; }
    TRACE9("store {} opened", reader.options_.directory.string());
    snapshot.environmentIs(reader.environment_);
    bell.reset();
    listen();
    fresh = true;
    pump.schedule();
}

void Reader::State::listen() {
    if (bell != nullptr && bell->listening()) { return; }
    if (bell != nullptr) {
        scheduler->runElsewhere([left = bell->release()] { ::close(left); }, [] {});
    }
    bell = std::make_unique<BellWatch>(
        *scheduler, reader.environment_->bellPath(), [this](bool bellChanged) {
            if (bellChanged) { watch.schedule(); }
            pump.schedule();
        });
    if (bell->listening()) {
        deaf = false;
    } else if (!std::exchange(deaf, true)) {
        TRACE5("bell {} cannot be watched ({}): changes are looked for once a second",
               reader.environment_->bellPath().string(),
               bell->error());
    }
}

void Reader::State::storeGone(std::string reason) {
    TRACE5("store {} gone: {}", reader.options_.directory.string(), reason);
    ++reader.losses_;
    reader.lastLoss_ = reason;
    reader.lastError_ = std::move(reason);
    snapshot.environmentIs(nullptr);
    // Where the store is large this takes longer than a slice: all pages of its map go at once.
    closing = std::make_shared<bool>(true);
    scheduler->runElsewhere(
        [environment = std::move(reader.environment_), left = bell->release()]() mutable {
            environment.reset();
            ::close(left);
        },
        [this, going = std::weak_ptr{closing}] {
            if (going.expired()) { return; }
            closing.reset();
            watch.schedule();
        });
    bell.reset();
    byTable.clear();
    caughtUp = false;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const std::shared_ptr<Impl> mount = mounts[i];
        mount->table = 0;
        mount->needsSweep = true;
        mount->sweeping = false;
        if (std::exchange(mount->present, false)) {
            tell(*mount, [](Sink& sink) { sink.presentIs(false); });
        }
    }
}

/// Once a second, and when the bell itself changed: is the store there, and still the same?
bool Reader::State::look() {
    const Vel::Ref<Reader> keep{&reader};
    watch.scheduleAfter(kLookInterval);
    if (reader.environment_ != nullptr && !reader.environment_->current()) {
        storeGone("its files were replaced, removed or cut off");
    }
    if (closing != nullptr) { return false; }  // to open another one would wait for it
    if (reader.environment_ == nullptr) { openStore(); }
    if (reader.environment_ == nullptr) { return false; }
    listen();
    int dead = 0;
    mdb_reader_check(reader.environment_->handle(), &dead);
    if (dead > 0) { TRACE7("cleared {} dead readers", dead); }
    pump.schedule();
    return false;
}

void Reader::State::unmount(Impl& mount) {
    // The pump may be going through the lists: it takes the entry out at its next run.
    mount.table = 0;
    mount.needsSweep = false;
    mount.state = nullptr;
    pump.schedule();
}

std::optional<TableInfo> Reader::State::table(std::string_view path) {
    const auto record = snapshot.record(kRegistry, path);
    return record ? decodeTable(path, record->value) : std::nullopt;
}

std::vector<TableInfo> Reader::State::tables(std::string_view prefix) {
    std::vector<TableInfo> found;
    snapshot.scan(kRegistry, prefix, true, [&](std::string_view path, const RecordView& record) {
        if (!path.starts_with(prefix)) { return false; }
        if (auto info = decodeTable(path, record.value)) { found.push_back(std::move(*info)); }
        return true;
    });
    return found;
}

}  // namespace Store
