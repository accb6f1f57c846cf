#include "forwarder/Publish/Publish.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "forwarder/Publish/JoinedDiff.h"
#include "platform/Store/Writer.h"
#include "platform/Vel/Assert.h"

namespace Pel::Forwarder {

namespace {

constexpr std::size_t kBatch = 512;          // elements asked of Flatten at once
constexpr std::size_t kBatchesOfRetry = 16;  // taken at once while publishing stands still
constexpr std::size_t kQuietTables = 512;    // told in one transaction
// Elements of a transaction after a failure. So few, since a deletion takes pages, too, before it
// frees any, and each may be in a page of its own.
constexpr std::size_t kSmall = 16;

}  // namespace

Publish::Publish(Flatten& flatten,
                 Store::Writer& writer,
                 const Kiln::Clock& clock,
                 unsigned cellId,
                 Kiln::Duration quietTime)
    : flatten_{flatten},
      writer_{writer},
      commit_{writer, clock},
      quiet_{clock, quietTime},
      cellId_{cellId} {}

std::string Publish::open(std::string_view source) {
    VEL_ASSERT(store_ == nullptr);
    auto store = std::make_unique<FlatStore>(writer_, cellId_);
    const bool valid = store->valid();
    // Committed first: what is read back has to come from a store that took the tables.
    std::string error = writer_.commit();
    if (!error.empty()) { return error; }
    if (!valid) { return "a table of the store is of another type"; }
    if (error = store->sourceIs(source); !error.empty()) { return error; }
    store->readBack(flatten_);
    for (const std::string& vrf : store->routeVrfs()) { quiet_.vrfIs(vrf); }
    store_ = std::move(store);
    return writer_.commit();  // tells whether reading failed, too
}

bool Publish::run(absl::FunctionRef<bool()> mustYield) {
    VEL_ASSERT(store_ != nullptr);
    if (commit_.mustWait()) { return false; }
    if (stuck_ && !failure().empty()) { takeWhatCame(); }
    for (;;) {
        if (done_ < diff_.size()) {
            if (!writeSome()) { return false; }
        } else {
            diff_.clear();
            done_ = 0;
            if (!rest_.empty()) {
                std::swap(diff_, rest_);
                continue;
            }
            stuck_ = false;
            joined_ = false;
            more_ = flatten_.collect(diff_, kBatch);
            readyDue_ = readyDue_ || !ready_ || !diff_.vrfs.empty();
            if (diff_.empty() && !more_) {
                if (readyDue_ && !writeReadiness()) { return false; }
                if (!writeQuiet()) { return false; }
            }
        }
        if (mustYield()) { return true; }
    }
}

/// One transaction's worth of the diff. False when it failed.
bool Publish::writeSome() {
    if (!diff_.nextHops.empty()) { store_->firstFreeIndexIs(flatten_.firstFreeIndex()); }
    std::size_t end = diff_.size();
    if (stuck_) { end = std::min(end, done_ + kSmall); }
    std::size_t next = done_;
    while (next < end && !commit_.full()) { write(next++); }
    if (!commit_.commit(next - done_)) {
        // The pages that the one before let go of can be had now. But once only, or it never ends.
        stuck_ = true;
        if (repeatable_) { commit_.repeatAtOnce(); }
        return std::exchange(repeatable_, false);
    }
    repeatable_ = stuck_;
    done_ = next;
    return true;
}

/// Publishing stands still: what the source told meanwhile joins what has not been written, and
/// what makes room goes first, in transactions of its own.
void Publish::takeWhatCame() {
    std::vector<FlatDiff> batches(2);  // for what waits
    for (std::size_t i = 0; i < kBatchesOfRetry && (i == 0 || more_); ++i) {
        FlatDiff came;
        more_ = flatten_.collect(came, kBatch);
        readyDue_ = readyDue_ || !came.vrfs.empty();
        if (!came.empty()) { batches.push_back(std::move(came)); }
    }
    if (joined_ && batches.size() == 2) { return; }
    batches[0] = std::exchange(diff_, {});
    batches[1] = std::exchange(rest_, {});
    rest_ = joined(batches, done_);
    diff_ = takeRoom(rest_, *store_);
    done_ = 0;
    writer_.abort();  // reading only
    joined_ = writer_.commit().empty();
    if (joined_) { return; }
    // Reading failed, so nobody knows who names what: nothing that may be named goes early.
    const auto last = [](auto& from, auto& to) {
        to.insert(to.end(), from.begin(), from.end());
        from.clear();
    };
    last(diff_.fecDeletes, rest_.fecDeletes);
    last(diff_.nextHopDeletes, rest_.nextHopDeletes);
}

bool Publish::writeReadiness() {
    store_->readyIs();
    if (!commit_.commit(0)) { return false; }
    readyDue_ = false;
    ready_ = true;
    return true;
}

/// Says of tables that are quiet that they are, in one transaction. True when there may be more of
/// them. When it fails all of them stay due.
bool Publish::writeQuiet() {
    const std::vector<QuietTables::Table> tables = quiet_.due(kQuietTables);
    for (const auto& [vrf, family] : tables) { store_->quiescedIs(vrf, family, true); }
    if (tables.empty() || !commit_.commit(0)) { return false; }
    for (const QuietTables::Table& table : tables) { quiet_.told(table); }
    return tables.size() == kQuietTables;
}

/// The elements of a diff, numbered through in the order in which they have to be applied.
void Publish::write(std::size_t element) {
    const auto in = [&element](const auto& list) {
        if (element < list.size()) { return true; }
        element -= list.size();
        return false;
    };
    const auto changed = [this](const FlatRouteKey& key) {
        quiet_.changed(key.vrf, key.prefix.address().family());
    };
    // First, since nothing refers to a route, and since they make room; then names become free.
    if (in(diff_.routeDeletes)) {
        changed(diff_.routeDeletes[element]);
        return store_->routeDel(diff_.routeDeletes[element]);
    }
    if (in(diff_.vrfDeletes)) { return quiet_.vrfDel(store_->vrfDel(diff_.vrfDeletes[element])); }
    if (in(diff_.vrfs)) {
        quiet_.vrfIs(diff_.vrfs[element].name);
        return store_->vrfIs(diff_.vrfs[element]);
    }
    if (in(diff_.vtis)) { return store_->vtisIs(diff_.vtis[element]); }
    if (in(diff_.nextHops)) { return store_->nextHopIs(diff_.nextHops[element]); }
    if (in(diff_.fecs)) { return store_->fecIs(diff_.fecs[element]); }
    if (in(diff_.routes)) {
        changed(diff_.routes[element].key);
        return store_->routeIs(diff_.routes[element]);
    }
    if (in(diff_.fecDeletes)) { return store_->fecDel(diff_.fecDeletes[element]); }
    if (in(diff_.nextHopDeletes)) { return store_->nextHopDel(diff_.nextHopDeletes[element]); }
}

}  // namespace Pel::Forwarder
