#include "platform/Gale/JournalLog.h"

#include "platform/Vel/Assert.h"

#include <algorithm>

namespace Gale {

void JournalLog::append(const JournalRecord& record) {
    VEL_ASSERT(chunks_.empty() || chunks_.back().lines.back().at < record.at);
    if (chunks_.empty() || chunks_.back().lines.size() == shape_.chunk || !chunks_.back().whole()) {
        Chunk& chunk = chunks_.emplace_back();
        chunk.lines.reserve(shape_.chunk);
        chunk.held.reserve(shape_.chunk);
        // Each chunk comes by here once: others go only, or are joined.
        if (chunks_.size() > shape_.whole) {
            // "= {}" would keep the room.
            std::vector<Held>{}.swap(chunks_[chunks_.size() - shape_.whole - 1].held);
        }
    }
    constexpr Position kMost = (Position{1} << 61U) - 1;  // at a change a nanosecond: 73 years
    chunks_.back().lines.push_back(
        Line{record.key, record.at & kMost, State::present, record.renames});
    chunks_.back().held.push_back({*record.content, record.born, kNever});
    ++size_;
}

/// Goes to the first line above `at`; whether there is one. No chunk is empty.
bool JournalLog::seek(Position at) {
    const auto chunk = std::partition_point(
        chunks_.begin(), chunks_.end(), [at](const Chunk& c) { return c.lines.back().at <= at; });
    chunk_ = static_cast<std::size_t>(chunk - chunks_.begin());
    if (chunk == chunks_.end()) { return false; }
    const auto line = std::partition_point(
        chunk->lines.begin(), chunk->lines.end(), [at](const Line& l) { return l.at <= at; });
    line_ = static_cast<std::size_t>(line - chunk->lines.begin());
    return true;
}

/// The line at exactly `at` if it is there and not dead.
JournalLog::Line* JournalLog::lineAt(Position at) {
    if (at == 0 || !seek(at - 1)) { return nullptr; }
    Line& line = chunks_[chunk_].lines[line_];
    return line.at == at && line.state != State::dead ? &line : nullptr;
}

/// The record of the line that was gone to last.
const JournalRecord* JournalLog::say(JournalRecord& in) const {
    const Chunk& chunk = chunks_[chunk_];
    const Line& line = chunk.lines[line_];
    in = {.key = line.key, .at = line.at, .renames = line.renames};
    const auto fill = [&in](const Content& content, Position born, Position until) {
        in.content = &content;
        in.born = born;
        in.until = until;
    };
    if (line.state == State::dead) {
        in.until = line.at;
    } else if (chunk.whole()) {
        const Held& held = chunk.held[line_];
        fill(held.content, held.born, held.until);
    } else if (line.state == State::kept) {
        const Held& kept = kept_.at({line.key, Position{line.at}});
        fill(kept.content, kept.born, kept.until);
    } else {
        const auto entry = entries_->find(line.key);
        VEL_ASSERT(entry != entries_->end() && entry->second.changed == line.at);
        fill(entry->second.content, entry->second.born, kNever);
    }
    return &in;
}

const JournalRecord* JournalLog::after(Position at) {
    return seek(at) ? say(current_) : nullptr;
}

const JournalRecord* JournalLog::next() {
    if (chunk_ == chunks_.size()) { return nullptr; }
    if (++line_ == chunks_[chunk_].lines.size()) {
        line_ = 0;
        if (++chunk_ == chunks_.size()) { return nullptr; }
    }
    return say(current_);
}

const JournalRecord* JournalLog::find(Position at) {
    return lineAt(at) != nullptr ? say(found_) : nullptr;
}

void JournalLog::keep(const JournalRecord& record) {
    Line* const line = lineAt(record.at);
    VEL_ASSERT(line != nullptr && line->state == State::present);
    line->state = State::kept;
    Chunk& chunk = chunks_[chunk_];
    if (chunk.whole()) { chunk.held[line_].until = record.until; }
    kept_.insert({{record.key, record.at}, {*record.content, record.born, record.until}});
}

const JournalRecord* JournalLog::keptAt(const EntryKey& key, Position at) {
    auto it = kept_.upper_bound(std::pair{key, at});
    if (it == kept_.begin() || (--it)->first.first != key || at >= it->second.until) {
        return nullptr;
    }
    return find(it->first.second);
}

bool JournalLog::keeps(const EntryKey& key) const {
    if (kept_.empty()) { return false; }
    const auto it = kept_.lower_bound(std::pair{key, Position{0}});
    return it != kept_.end() && it->first.first == key;
}

void JournalLog::kill(Position at) {
    Line* const line = lineAt(at);
    VEL_ASSERT(line != nullptr);
    if (line->state == State::kept) { kept_.erase({line->key, Position{line->at}}); }
    line->state = State::dead;
    Chunk& chunk = chunks_[chunk_];
    if (chunk.whole()) { chunk.held[line_].content = {}; }
    ++chunk.dead;
    if (chunk.dead * 2 >= chunk.lines.size()) { compact(chunk_); }
}

/// Takes the dead out of a chunk, and joins it to its neighbours where both fit into one.
void JournalLog::compact(std::size_t at) {
    Chunk& chunk = chunks_[at];
    size_ -= chunk.dead;
    std::size_t alive = 0;
    for (std::size_t i = 0; i < chunk.lines.size(); ++i) {
        if (chunk.lines[i].state == State::dead) { continue; }
        chunk.lines[alive] = chunk.lines[i];
        if (chunk.whole()) { chunk.held[alive] = std::move(chunk.held[i]); }
        ++alive;
    }
    if (chunk.whole()) { chunk.held.resize(alive); }
    chunk.lines.resize(alive);
    chunk.lines.shrink_to_fit();
    chunk.held.shrink_to_fit();
    chunk.dead = 0;
    if (chunk.lines.empty()) {
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
    if (before.whole() != chunk.whole() ||
        before.lines.size() + chunk.lines.size() > shape_.chunk) {
        return;
    }
    before.lines.insert(before.lines.end(), chunk.lines.begin(), chunk.lines.end());
    std::move(chunk.held.begin(), chunk.held.end(), std::back_inserter(before.held));
    before.dead += chunk.dead;
    chunks_.erase(chunks_.begin() + static_cast<std::ptrdiff_t>(at));
}

void JournalLog::trim(Position at) {
    for (int i = 0; i < 2 && !chunks_.empty() && chunks_.front().lines.back().at <= at; ++i) {
        dropFront();
    }
}

void JournalLog::dropFront() {
    const Chunk& chunk = chunks_.front();
    for (const Line& line : chunk.lines) {
        if (line.state == State::kept) { kept_.erase({line.key, Position{line.at}}); }
    }
    size_ -= chunk.lines.size();
    chunks_.pop_front();
}

Position JournalLog::sweep(Position from, absl::FunctionRef<bool(const JournalRecord&)> needed) {
    for (std::size_t i = 0; i < shape_.chunk; ++i) {
        const JournalRecord* const record = after(from);
        if (record == nullptr) { return kNever; }
        from = record->at;
        if (!record->dead() && !needed(*record)) { kill(from); }
    }
    return from;
}

}  // namespace Gale
