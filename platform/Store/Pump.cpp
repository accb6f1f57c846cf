#include <algorithm>
#include <exception>

#include "platform/Blink/Trace.h"
#include "platform/Store/ReaderState.h"

BLINK_TRACE_HANDLE("StorePump");

namespace Store {
namespace {

constexpr unsigned kKeysPerSlice = 256;
constexpr unsigned kKeysPerClockRead = 16;
constexpr std::chrono::milliseconds kSlice{1};

}  // namespace

/// What a keeper or subscriber throws stays here: the others are told all the same.
void Reader::State::guarded(absl::FunctionRef<void()> call) {
    try {
        call();
    } catch (const std::exception& error) {
        ++sinkFailures;
        TRACE5("a sink threw: {}", error.what());
    } catch (...) {
        ++sinkFailures;
        TRACE5("a sink threw");
    }
}

void Reader::State::tell(Impl& mount, absl::FunctionRef<void(Sink&)> call) {
    if (mount.sink == nullptr) { return; }
    guarded([&] { call(*mount.sink); });
}

/// One slice. Answers whether work is left.
bool Reader::State::run() {
    const Vel::Ref<Reader> keep{&reader};  // a sink may let go of the reader
    snapshot.reset();
    compact();
    if (reader.environment_ == nullptr) { return false; }
    keys = 0;
    sliceEnds = scheduler->clock().now() + kSlice;
    Next next = Next::again;
    if (fresh) { beginFresh(); }
    while (next == Next::again && snapshot.error().empty()) {
        mounted = false;
        if (const std::shared_ptr<Impl> mount = nextToSweep()) {
            next = sweep(*mount) ? Next::again : Next::yield;
        } else if (unsettled) {
            next = settle() ? Next::again : Next::yield;
        } else {
            next = followLog();
        }
    }
    if (!snapshot.error().empty()) {
        storeGone(std::string{snapshot.error()});
        return false;
    }
    if (next == Next::idle && !caughtUp) {
        caughtUp = true;
        guarded([this] { reader.onCaughtUp_.publish(); });
    }
    return next == Next::yield;
}

bool Reader::State::sliceOver() {
    ++keys;
    const bool timeUp = keys % kKeysPerClockRead == 0 && scheduler->clock().now() >= sliceEnds;
    return scheduler->mustYield() || timeUp || keys >= kKeysPerSlice;
}

/// A store just opened, or a reader that fell behind the log: everything is swept, and the log
/// follows from where it stands now.
void Reader::State::beginFresh() {
    fresh = false;
    unsettled = true;
    caughtUp = false;
    reader.position_ = snapshot.logLast();
    for (const auto& mount : mounts) {
        mount->needsSweep = mount->sink != nullptr;
        mount->sweeping = false;
        mount->settling = false;
        mount->told = false;
    }
    std::set<std::string> paths{knownTables};
    for (const TableInfo& info : tables({})) { paths.insert(info.path); }
    for (const std::string& path : paths) { publishTable(path); }
}

/// Tells of a table if it came or went since subscribers were last told.
void Reader::State::publishTable(const std::string& path) {
    const bool there = table(path).has_value();
    if (there == knownTables.contains(path)) { return; }
    if (there) {
        knownTables.insert(path);
    } else {
        knownTables.erase(path);
    }
    guarded([&] { reader.onTable_.publish(path); });
}

std::shared_ptr<Reader::State::Impl> Reader::State::nextToSweep() const {
    std::shared_ptr<Impl> next;
    for (const auto& mount : mounts) {
        if (mount->needsSweep && (next == nullptr || mount->kind < next->kind)) { next = mount; }
    }
    return next;
}

/// Has the sink do all that it put off: whoever removes a table has emptied it before.
void Reader::State::restAtOnce(Impl& mount) {
    for (bool more = true; more && mount.sink != nullptr;) {
        tell(mount, [&](Sink& sink) { more = sink.sweepRest(); });
    }
}

/// Has the sink do a slice's share of it. Answers whether it is done.
bool Reader::State::rest(Impl& mount) {
    bool more = mount.sink != nullptr;
    tell(mount, [&](Sink& sink) { more = sink.sweepRest(); });
    return !more || mount.sink == nullptr;
}

/// Tells a mount all keys of its table, from where the last slice stopped. Answers whether it is
/// done.
bool Reader::State::sweep(Impl& mount) {
    unsettled = true;
    presented = false;
    caughtUp = false;
    if (!mount.sweeping) {
        attach(mount);
        mount.sweeping = true;
        mount.sweptTo.clear();
        tell(mount, [](Sink& sink) { sink.sweepBegun(); });
    }
    const auto visit = [&](std::string_view key, const RecordView& record) {
        // State must not be told before the data it speaks of: what changed meanwhile is told when
        // the log comes to it.
        const bool later = mount.kind == TableKind::state && record.sequence > reader.position_;
        tell(mount, [&](Sink& sink) { later ? sink.sweepLater(key) : sink.sweepKey(key); });
        if (!sliceOver()) { return mount.sink != nullptr; }
        mount.sweptTo = key;
        return false;
    };
    if (!mount.told) {
        const bool ended = mount.table == kRegistry ||
                           snapshot.scan(mount.table, mount.sweptTo, mount.sweptTo.empty(), visit);
        if (!ended && mount.sink != nullptr) { return false; }
        mount.told = true;
        tell(mount, [](Sink& sink) { sink.sweepEnded(); });
    }
    if (!rest(mount)) { return false; }
    mount.needsSweep = false;
    mount.sweeping = false;
    mount.told = false;
    return true;
}

/// All mounts are swept: they become present, and what they put off until then is done. Answers
/// whether all of it is.
bool Reader::State::settle() {
    if (!presented) {
        presented = true;
        presentAll();
        for (const auto& mount : mounts) {
            mount->settling = !mount->needsSweep;
            mount->told = false;
        }
    }
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const std::shared_ptr<Impl> mount = mounts[i];
        if (!mount->settling) { continue; }
        if (!std::exchange(mount->told, true)) {
            tell(*mount, [](Sink& sink) { sink.sweepSettled(); });
        }
        if (!rest(*mount)) { return false; }
        mount->settling = false;
        mount->told = false;
    }
    unsettled = false;
    return true;
}

/// Kind by kind.
void Reader::State::presentAll() {
    for (const TableKind kind :
         {TableKind::table, TableKind::content, TableKind::stash, TableKind::state}) {
        for (std::size_t i = 0; i < mounts.size(); ++i) {
            const std::shared_ptr<Impl> mount = mounts[i];
            const bool there = mount->table != kRegistry;
            if (mount->kind != kind || mount->needsSweep || mount->present == there) { continue; }
            mount->present = there;
            tell(*mount, [there](Sink& sink) { sink.presentIs(there); });
        }
    }
}

Reader::State::Next Reader::State::followLog() {
    const Sequence first = snapshot.logFirst();
    if (first > reader.position_ + 1) {
        TRACE5("fell behind the log: at {}, the log begins at {}", reader.position_, first);
        beginFresh();
        return Next::again;
    }
    Next next = Next::idle;
    snapshot.log(reader.position_, [&](const LogEntry& entry) {
        caughtUp = false;
        tellEntry(entry);
        reader.position_ = entry.sequence;
        if (mounted) {
            next = Next::again;
        } else if (sliceOver()) {
            next = Next::yield;
        }
        return next == Next::idle;
    });
    return next;
}

void Reader::State::tellEntry(const LogEntry& entry) {
    if (entry.table == kRegistry) { return tableChanged(std::string{entry.key}); }
    const auto found = byTable.find(entry.table);
    if (found == byTable.end()) { return; }
    for (const auto& mount : found->second) {
        if (mount->table != entry.table || mount->needsSweep) { continue; }
        if (mount->kind == TableKind::state) {
            const auto record = snapshot.record(entry.table, entry.key);
            if (record && record->sequence > entry.sequence) { continue; }
        }
        tell(*mount, [&](Sink& sink) { sink.keyChanged(entry.key); });
    }
}

/// A table was registered or removed. One that was registered is empty at this point of the log.
void Reader::State::tableChanged(const std::string& path) {
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        const std::shared_ptr<Impl> mount = mounts[i];
        if (mount->path != path || mount->sink == nullptr || mount->needsSweep) { continue; }
        const TableId before = mount->table;
        attach(*mount);
        if (mount->table == before) { continue; }
        tell(*mount, [](Sink& sink) { sink.sweepBegun(); });
        tell(*mount, [](Sink& sink) { sink.sweepEnded(); });
        restAtOnce(*mount);
        const bool there = mount->table != kRegistry;
        if (mount->present != there) {
            mount->present = there;
            tell(*mount, [there](Sink& sink) { sink.presentIs(there); });
        }
        tell(*mount, [](Sink& sink) { sink.sweepSettled(); });
        restAtOnce(*mount);
    }
    publishTable(path);
}

/// Finds the mount's table as it is registered now.
void Reader::State::attach(Impl& mount) {
    const auto info = table(mount.path);
    const bool fits = info && info->type == mount.type && info->kind == mount.kind;
    if (info && !fits) {
        TRACE5("table {} is of type {}, wanted {}", mount.path, info->type, mount.type);
    }
    const TableId now = fits ? info->id : kRegistry;
    if (now == mount.table) { return; }
    detach(mount);
    mount.table = now;
    if (now == kRegistry) { return; }
    for (const auto& known : mounts) {
        if (known.get() == &mount) { byTable[now].push_back(known); }
    }
}

void Reader::State::detach(Impl& mount) {
    const auto found = byTable.find(mount.table);
    if (found == byTable.end()) { return; }
    std::erase_if(found->second, [&](const auto& other) { return other.get() == &mount; });
    if (found->second.empty()) { byTable.erase(found); }
}

/// Takes out what was unmounted since the last run.
void Reader::State::compact() {
    const auto unmounted = [](const auto& mount) { return mount->sink == nullptr; };
    std::erase_if(mounts, unmounted);
    for (auto it = byTable.begin(); it != byTable.end();) {
        std::erase_if(it->second, unmounted);
        const auto here = it++;
        if (here->second.empty()) { byTable.erase(here); }
    }
}

}  // namespace Store
