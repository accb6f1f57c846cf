#include "platform/Gale/JournalLog.h"

#include "platform/Vel/Assert.h"

#include <algorithm>

namespace Gale {

namespace {

bool atOrBelow(Position at, const JournalRecord& record) {
    return at < record.at;
}

}  // namespace

void JournalLog::append(JournalRecord record) {
    VEL_ASSERT(chunks_.empty() || chunks_.back().records.back().at < record.at);
    if (chunks_.empty() || chunks_.back().records.size() == kChunk) { chunks_.emplace_back(); }
    chunks_.back().records.push_back(std::move(record));
    ++size_;
}

/// The first chunk whose last record is above `at`; no chunk is empty.
std::size_t JournalLog::chunkAfter(Position at) const {
    const auto found = std::partition_point(
        chunks_.begin(), chunks_.end(), [at](const Chunk& c) { return c.records.back().at <= at; });
    return static_cast<std::size_t>(found - chunks_.begin());
}

JournalRecord* JournalLog::after(Position at) {
    chunk_ = chunkAfter(at);
    if (chunk_ == chunks_.size()) { return nullptr; }
    auto& records = chunks_[chunk_].records;
    const auto found = std::upper_bound(records.begin(), records.end(), at, atOrBelow);
    record_ = static_cast<std::size_t>(found - records.begin());
    return &*found;
}

JournalRecord* JournalLog::next() {
    if (chunk_ == chunks_.size()) { return nullptr; }
    if (++record_ < chunks_[chunk_].records.size()) { return &chunks_[chunk_].records[record_]; }
    record_ = 0;
    return ++chunk_ < chunks_.size() ? &chunks_[chunk_].records.front() : nullptr;
}

JournalRecord* JournalLog::find(Position at) {
    if (at == 0) { return nullptr; }
    JournalRecord* record = after(at - 1);
    return record != nullptr && record->at == at && !record->dead() ? record : nullptr;
}

JournalRecord* JournalLog::keptAt(const EntryKey& key, Position at) {
    auto it = kept_.upper_bound(std::pair{key, at});
    if (it == kept_.begin() || (--it)->first != key) { return nullptr; }
    JournalRecord* record = find(it->second);
    return record != nullptr && at < record->until ? record : nullptr;
}

bool JournalLog::keeps(const EntryKey& key) const {
    if (kept_.empty()) { return false; }
    const auto it = kept_.lower_bound(std::pair{key, Position{0}});
    return it != kept_.end() && it->first == key;
}

void JournalLog::kill(Position at) {
    JournalRecord* record = find(at);
    VEL_ASSERT(record != nullptr);
    kept_.erase({record->key, record->at});
    record->content = {};
    record->until = record->at;
    Chunk& chunk = chunks_[chunk_];
    ++chunk.dead;
    if (chunk.dead * 2 >= chunk.records.size()) { compact(chunk_); }
}

/// Takes the dead out of a chunk, and joins it to its neighbours where both fit into one.
void JournalLog::compact(std::size_t at) {
    Chunk& chunk = chunks_[at];
    size_ -= chunk.dead;
    std::erase_if(chunk.records, [](const JournalRecord& record) { return record.dead(); });
    chunk.records.shrink_to_fit();
    chunk.dead = 0;
    if (chunk.records.empty()) {
        chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(at));
        return;
    }
    join(at + 1);
    join(at);
}

void JournalLog::join(std::size_t at) {
    if (at == 0 || at >= chunks_.size()) { return; }
    Chunk& before = chunks_[at - 1];
    Chunk& chunk = chunks_[at];
    if (before.records.size() + chunk.records.size() > kChunk) { return; }
    std::move(chunk.records.begin(), chunk.records.end(), std::back_inserter(before.records));
    before.dead += chunk.dead;
    chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(at));
}

void JournalLog::trim(Position at) {
    for (int i = 0; i < 2 && !chunks_.empty() && chunks_.front().records.back().at <= at; ++i) {
        dropFront();
    }
}

void JournalLog::dropFront() {
    const Chunk& chunk = chunks_.front();
    if (!kept_.empty()) {
        for (const JournalRecord& record : chunk.records) { kept_.erase({record.key, record.at}); }
    }
    size_ -= chunk.records.size();
    chunks_.pop_front();
}

Position JournalLog::sweep(Position from, absl::FunctionRef<bool(const JournalRecord&)> needed) {
    for (std::size_t i = 0; i < kChunk; ++i) {
        JournalRecord* record = after(from);
        if (record == nullptr) { return kNever; }
        from = record->at;
        if (!record->dead() && !needed(*record)) { kill(from); }
    }
    return from;
}

}  // namespace Gale
