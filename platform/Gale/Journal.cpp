#include "platform/Gale/Journal.h"

#include "platform/Gale/CursorPosition.h"
#include "platform/Vel/Assert.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace Gale {

namespace {

bool sameButStamp(const Content& content,
                  std::string_view bytes,
                  std::size_t contentOffset,
                  std::span<const Reference> references) {
    if (content.isValue()) { return false; }
    const std::string_view held = content.view();
    const auto heldReferences = content.references();
    return held.size() == bytes.size() &&
           held.substr(contentOffset) == bytes.substr(contentOffset) &&
           std::equal(
               heldReferences.begin(), heldReferences.end(), references.begin(), references.end());
}

bool namesTheSame(const Content& one, const Content& other) {
    if (one.isValue() || other.isValue()) { return false; }
    const auto a = one.references();
    const auto b = other.references();
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

template <std::size_t... I>
std::array<JournalLane, kLanes> lanesOf(LogShape shape, std::index_sequence<I...>) {
    return {((void)I, JournalLane{shape})...};
}

std::string_view asAnnex(std::span<const Reference> references) {
    return {reinterpret_cast<const char*>(references.data()), references.size_bytes()};
}

std::optional<std::uint64_t> valueOf(const Content& content) {
    return content.isValue() ? std::optional{content.value()} : std::nullopt;
}

}  // namespace

Journal::Batch::Batch(Journal& journal) : journal_(journal) {
    ++journal_.batches_;
}

Journal::Batch::~Batch() {
    journal_.endBatch();
}

Journal::Journal(Options options)
    : options_(std::move(options)),
      lanes_(lanesOf(options_.log, std::make_index_sequence<kLanes>{})) {}

Journal::Journal() : Journal(Options{}) {}

Journal::~Journal() {
    VEL_ASSERT(readers_.empty());
}

bool Journal::update(Lane l,
                     const EntryKey& key,
                     std::string_view bytes,
                     std::size_t contentOffset,
                     std::span<const Reference> references) {
    VEL_ASSERT(contentOffset <= bytes.size());
    // Only this thread changes entries, so that it may look without the mutex.
    const auto entry = lane(l).entries.lower_bound(key);
    if (entry != lane(l).entries.end() && entry->first == key &&
        sameButStamp(entry->second.content, bytes, contentOffset, references)) {
        return false;
    }
    put(l, key, entry, Content{SharedBytes::copyOf(bytes, asAnnex(references))});
    return true;
}

bool Journal::updateValue(Lane l, const EntryKey& key, std::uint64_t value, std::int64_t stamp) {
    VEL_ASSERT(stamp >= 0 && stamp <= (std::int64_t{1} << 62));
    const auto entry = lane(l).entries.lower_bound(key);
    if (entry != lane(l).entries.end() && entry->first == key && entry->second.content.isValue() &&
        entry->second.content.value() == value) {
        return false;
    }
    put(l, key, entry, Content{value, stamp});
    return true;
}

/// `entry` is the key's lower bound.
void Journal::put(Lane l, const EntryKey& key, JournalEntries::iterator entry, Content content) {
    const Batch batch{*this};
    JournalLane& to = lane(l);
    added_ = entry == to.entries.end() || entry->first != key;
    const bool namesOthers = added_ || !namesTheSame(entry->second.content, content);
    // Who names whom is the writer's business alone: no cursor waits for that.
    if (!added_ && namesOthers) { namedMore(entry->second.content, -1); }
    {
        const TurnMutex::First lock{mutex_};
        const Position now = ++last_;
        ++to.count;
        bool renames = namesOthers;
        if (added_) {
            if (soughtLast_.lane == l) { foundLast_ = nullptr; }
            entry = to.entries.insert(entry, key);
            entry->second.born = now;
            to.lastBorn = now;
        } else {
            renames = overtake(l, entry->second.changed, now) || renames;
        }
        entry->second.changed = now;
        replaced_ = valueOf(entry->second.content);
        entry->second.content = std::move(content);

        const JournalRecord record{.key = key,
                                   .content = &entry->second.content,
                                   .at = now,
                                   .born = entry->second.born,
                                   .renames = renames};
        if (changeNeeded(l, record)) { to.changes.append(record); }
    }
    if (added_ && !absentNamedBy_.empty()) {
        const auto named = absentNamedBy_.extract({l, key});
        if (!named.empty()) { entry->second.namedBy = named.mapped(); }
    }
    if (namesOthers) { namedMore(entry->second.content, 1); }
}

bool Journal::remove(Lane l, const EntryKey& key, std::string_view deleteBytes) {
    JournalLane& from = lane(l);
    const auto entry = from.entries.find(key);
    if (entry == from.entries.end()) { return false; }

    const Batch batch{*this};
    namedMore(entry->second.content, -1);
    if (entry->second.namedBy > 0) { absentNamedBy_[{l, key}] = entry->second.namedBy; }
    const TurnMutex::First lock{mutex_};
    const Position now = ++last_;
    ++from.count;
    overtake(l, entry->second.changed, now);
    JournalRecord tombstone{.key = key, .at = now, .born = entry->second.born};
    replaced_ = valueOf(entry->second.content);
    if (soughtLast_.lane == l) { foundLast_ = nullptr; }
    from.entries.erase(entry);
    for (CursorPosition* reader : readers_) { reader->noteRemoval(l, tombstone); }
    if (tombstoneNeeded(l, tombstone)) {
        const Content content{SharedBytes::copyOf(deleteBytes)};
        tombstone.content = &content;
        from.tombstones.append(tombstone);
        from.tombstones.keep(tombstone);
    }
    return true;
}

/// The content that came at `at`, which the entry still holds, is overtaken: it stays only while a
/// cursor that is on its way needs it. Whether it was logged and named others than the one before it.
bool Journal::overtake(Lane l, Position at, Position by) {
    JournalLog& changes = lane(l).changes;
    const JournalRecord* const logged = changes.find(at);
    if (logged == nullptr) { return false; }
    JournalRecord record = *logged;
    record.until = by;
    if (changeNeeded(l, record)) {
        changes.keep(record);
    } else {
        changes.kill(at);
    }
    return record.renames;
}

void Journal::endBatch() {
    if (--batches_ > 0 || head_ == last_) { return; }
    {
        const TurnMutex::First lock{mutex_};
        head_ = last_;
        for (CursorPosition* reader : readers_) { departIfReady(*reader); }
    }
    if (options_.onAdvance) { options_.onAdvance(); }
}

/// Null when it is not there.
JournalEntry* Journal::entryOf(const Reference& named) {
    if (foundLast_ != nullptr && soughtLast_ == named) { return foundLast_; }
    JournalEntries& entries = lane(named.lane).entries;
    const auto entry = entries.find(named.key);
    soughtLast_ = named;
    foundLast_ = entry != entries.end() ? &entry->second : nullptr;
    return foundLast_;
}

const Content* Journal::find(Lane l, const EntryKey& key) {
    const JournalEntry* const entry = entryOf({l, key});
    return entry != nullptr ? &entry->content : nullptr;
}

std::size_t Journal::namedBy(const Reference& named) {
    if (const JournalEntry* const entry = entryOf(named)) { return entry->namedBy; }
    const auto absent = absentNamedBy_.find(named);
    return absent != absentNamedBy_.end() ? absent->second : 0;
}

/// Counts what the content refers to, up or down by one.
void Journal::namedMore(const Content& by, int more) {
    eachNamed(by, [&](const Reference& named) {
        if (JournalEntry* const entry = entryOf(named)) {
            entry->namedBy += static_cast<std::uint32_t>(more);
            return;
        }
        std::uint32_t& absent = absentNamedBy_[named];
        absent += static_cast<std::uint32_t>(more);
        if (absent == 0) { absentNamedBy_.erase(named); }
    });
}

std::optional<EntryKey> Journal::firstKey(Lane l) const {
    const JournalEntries& entries = lanes_[index(l)].entries;
    return entries.empty() ? std::nullopt : std::optional{entries.begin()->first};
}

std::optional<EntryKey> Journal::nextKey(Lane l, const std::optional<EntryKey>& after) const {
    const JournalEntries& entries = lanes_[index(l)].entries;
    const auto entry = after ? entries.upper_bound(*after) : entries.begin();
    return entry != entries.end() ? std::optional{entry->first} : std::nullopt;
}

Position Journal::head() const {
    const std::lock_guard lock{mutex_};
    return head_;
}

JournalStatistics Journal::statistics() const {
    const std::lock_guard lock{mutex_};
    JournalStatistics result;
    for (std::size_t i = 0; i < kLanes; ++i) {
        result.entries[i] = lanes_[i].entries.size();
        result.changes[i] = lanes_[i].changes.size();
        result.tombstones[i] = lanes_[i].tombstones.size();
        result.overtaken += lanes_[i].changes.kept();
    }
    result.cursors = readers_.size();
    return result;
}

bool Journal::changeNeeded(Lane l, const JournalRecord& record) const {
    return std::any_of(readers_.begin(), readers_.end(), [&](const CursorPosition* reader) {
        return reader->needsChange(l, record);
    });
}

bool Journal::tombstoneNeeded(Lane l, const JournalRecord& record) const {
    return std::any_of(readers_.begin(), readers_.end(), [&](const CursorPosition* reader) {
        return reader->needsTombstone(l, record);
    });
}

/// Forgets what every cursor has behind it, a little at a time.
void Journal::trim(Lane l) {
    Position changes = kNever;
    Position tombstones = kNever;
    for (const CursorPosition* reader : readers_) {
        if (!has(reader->lanes, l)) { continue; }
        changes = std::min(changes, reader->changesPassed[index(l)]);
        tombstones = std::min(tombstones, reader->tombstonesPassed[index(l)]);
    }
    lane(l).changes.trim(changes);
    lane(l).tombstones.trim(tombstones);
}

void Journal::attach(CursorPosition& reader) {
    // In the middle of a batch the cursor begins with what is there so far.
    reader.beginAt(last_);
    readers_.push_back(&reader);
}

/// Gives a cursor at rest the head as its target, unless a batch is open: some of what was there at
/// the head may have gone already.
void Journal::departIfReady(CursorPosition& reader) {
    if (!reader.atRest || head_ != last_) { return; }
    if (reader.walking ? !reader.walkDone : head_ <= reader.seen) { return; }
    std::array<Position, kLanes> counts{};
    for (std::size_t i = 0; i < kLanes; ++i) { counts[i] = lanes_[i].count; }
    reader.depart(head_, counts);
}

void Journal::detach(CursorPosition& reader) {
    {
        const std::lock_guard lock{mutex_};
        std::erase(readers_, &reader);
    }
    for (std::size_t i = 0; i < kLanes; ++i) {
        const Lane l = laneAt(i);
        const auto change = [&](const JournalRecord& record) { return changeNeeded(l, record); };
        const auto tombstone = [&](const JournalRecord& record) {
            return tombstoneNeeded(l, record);
        };
        for (Position from = 0; from != kNever;) {
            const std::lock_guard lock{mutex_};
            trim(l);
            from = lanes_[i].changes.sweep(from, change);
        }
        for (Position from = 0; from != kNever;) {
            const std::lock_guard lock{mutex_};
            from = lanes_[i].tombstones.sweep(from, tombstone);
        }
    }
}

}  // namespace Gale
