#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "absl/container/btree_map.h"
#include "platform/Gale/JournalEntry.h"

namespace Gale {

/// An entry that is alive.
struct JournalEntry {
    Content content;
    Position born = 0;          ///< when it was added; a removal ends the life
    Position changed = 0;       ///< when it got its present content
    std::uint32_t namedBy = 0;  ///< so many contents of other entries refer to it; the writer's
};

/// Entries by key, in key order. A key and an entry are so big that a common B-tree holds four of
/// them a node and is ten levels deep at a million: here rows of up to 64 stand below a tree of
/// rows. A row has room for few more than it holds, since keys that come in no order leave most rows
/// between half full and full. A change invalidates iterators.
class JournalEntries final {
    static constexpr std::size_t kRow = 64;
    static constexpr std::size_t kGrowth = 8;
    using Row = std::vector<std::pair<EntryKey, JournalEntry>>;
    // By a key above all of the row before, at or below all of this one.
    using Rows = absl::btree_map<EntryKey, std::unique_ptr<Row>>;

public:
    template <class RowIterator, class Value>
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Value;
        using difference_type = std::ptrdiff_t;
        using pointer = Value*;
        using reference = Value&;

        Iterator() = default;
        Iterator(RowIterator row, std::size_t at) : row_(row), at_(at) {}
        Value& operator*() const { return (*row_->second)[at_]; }
        Value* operator->() const { return &**this; }
        Iterator& operator++() {
            if (++at_ == row_->second->size()) {
                ++row_;
                at_ = 0;
            }
            return *this;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) {
            return a.row_ == b.row_ && a.at_ == b.at_;
        }

    private:
        friend class JournalEntries;
        RowIterator row_;
        std::size_t at_ = 0;
    };
    using iterator = Iterator<Rows::iterator, Row::value_type>;
    using const_iterator = Iterator<Rows::const_iterator, const Row::value_type>;

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    iterator begin() { return {rows_.begin(), 0}; }
    iterator end() { return {rows_.end(), 0}; }
    const_iterator begin() const { return {rows_.begin(), 0}; }
    const_iterator end() const { return {rows_.end(), 0}; }
    /// The first entry at the key or above it.
    iterator lower_bound(const EntryKey& key) {
        // Most come in order: behind the one that was added last.
        if (knowsAdded_ && added_->first < key) {
            const iterator next = std::next(added_);
            if (next == end() || !(next->first < key)) { return next; }
        }
        return bound<iterator>(rows_, key, false);
    }
    /// The first entry above the key.
    iterator upper_bound(const EntryKey& key) { return bound<iterator>(rows_, key, true); }
    const_iterator upper_bound(const EntryKey& key) const {
        return bound<const_iterator>(rows_, key, true);
    }
    iterator find(const EntryKey& key) {
        return exact(*this, bound<iterator>(rows_, key, false), key);
    }
    const_iterator find(const EntryKey& key) const {
        return exact(*this, bound<const_iterator>(rows_, key, false), key);
    }

    /// Adds an entry that is not there; `before` is its lower_bound().
    iterator insert(iterator before, const EntryKey& key);
    void erase(iterator at);

private:
    /// Where the key stands if it is there, and belongs if it is not; the end when there is no row.
    template <class Of>
    static auto rowOf(Of& rows, const EntryKey& key) {
        auto row = rows.upper_bound(key);
        if (row != rows.begin()) { --row; }
        return row;
    }
    template <class Found, class Of>
    static Found bound(Of& rows, const EntryKey& key, bool above) {
        auto row = rowOf(rows, key);
        if (row == rows.end()) { return {row, 0}; }
        const Row& in = *row->second;
        const auto at = std::partition_point(in.begin(), in.end(), [&](const auto& item) {
            return item.first < key || (above && item.first == key);
        });
        if (at == in.end()) { return {++row, 0}; }
        return {row, static_cast<std::size_t>(at - in.begin())};
    }
    template <class Self, class Found>
    static Found exact(Self& self, Found at, const EntryKey& key) {
        return at != self.end() && at->first == key ? at : self.end();
    }
    Rows::iterator rowAt(const EntryKey& first) {
        return rows_.try_emplace(first, std::make_unique<Row>()).first;
    }
    static void reserve(Row& row, std::size_t size) {
        row.reserve((size + kGrowth - 1) / kGrowth * kGrowth);
    }

    Rows rows_;                // none is empty
    iterator added_;           // the last one
    bool knowsAdded_ = false;  // nothing has gone since
    std::size_t size_ = 0;
};

inline JournalEntries::iterator JournalEntries::insert(iterator before, const EntryKey& key) {
    auto row = before.row_;
    std::size_t at = before.at_;
    if (at == 0 && !rows_.empty()) {  // or at the end of the row before
        row = before == end() ? std::prev(rows_.end()) : rowOf(rows_, key);
        if (row != before.row_) { at = row->second->size(); }
        if (key < row->first) {
            auto first = std::move(row->second);
            rows_.erase(row);
            row = rows_.emplace(key, std::move(first)).first;
        }
    }
    ++size_;
    if (row == rows_.end()) {
        row = rowAt(key);
    } else if (row->second->size() == kRow && at == kRow) {
        row = rowAt(key);  // keys that come in order fill their rows
        at = 0;
    } else if (row->second->size() == kRow) {
        Row& full = *row->second;
        const auto half = full.begin() + kRow / 2;
        const EntryKey first = half->first;
        const EntryKey own = row->first;
        Row& upper = *rowAt(first)->second;  // moves iterators
        reserve(upper, kRow / 2 + 1);
        upper.assign(std::make_move_iterator(half), std::make_move_iterator(full.end()));
        full.erase(half, full.end());
        full.shrink_to_fit();
        row = rows_.find(at <= kRow / 2 ? own : first);
        if (at > kRow / 2) { at -= kRow / 2; }
    }
    Row& into = *row->second;
    reserve(into, into.size() + 1);
    into.insert(into.begin() + static_cast<std::ptrdiff_t>(at), {key, JournalEntry{}});
    added_ = {row, at};
    knowsAdded_ = true;
    return added_;
}

inline void JournalEntries::erase(iterator at) {
    knowsAdded_ = false;
    Row& row = *at.row_->second;
    row.erase(row.begin() + static_cast<std::ptrdiff_t>(at.at_));
    --size_;
    if (row.empty()) {
        rows_.erase(at.row_);
        return;
    }
    if (row.capacity() >= row.size() + 2 * kGrowth) { row.shrink_to_fit(); }
    const auto next = std::next(at.row_);
    if (row.size() > kRow / 4 || next == rows_.end()) { return; }
    Row& after = *next->second;
    if (row.size() + after.size() > kRow * 3 / 4) { return; }
    reserve(row, row.size() + after.size());
    std::move(after.begin(), after.end(), std::back_inserter(row));
    rows_.erase(next);
}

}  // namespace Gale
