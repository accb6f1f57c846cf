#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/PackedNotification.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace Gale {

class ListSource;

/// Goes through keys that may change meanwhile: the first one after a key, or of all.
using NextKey = std::function<std::optional<EntryKey>(const std::optional<EntryKey>& after)>;

/// What an encoder says about one entry. Reused for one entry after the other, so that it stops
/// allocating once it has grown.
struct EncodedEntry {
    /// One Notification: its stamp is there already, the encoder appends prefix, updates, atomic.
    PackedNotification notification;
    /// Entries of earlier lanes (or of the same) that this one names.
    std::vector<Reference> references;
    /// Instead of bytes: what View::encodeValue makes the Notification of when it is sent.
    std::optional<std::uint64_t> value;
    /// Set by the encoder: encode it once more, with `last`, when all is shown that was marked up to
    /// now. For entries of lane flags.
    bool askLast = false;
    bool last = false;
};

/// Takes note of changed entries; the provider behind it encodes them later, in slices.
class MarkSink {
public:
    MarkSink() = default;
    MarkSink(const MarkSink&) = delete;
    MarkSink& operator=(const MarkSink&) = delete;
    virtual ~MarkSink() = default;
    virtual void mark(ListSource& source, const EntryKey& key) = 0;
    /// Everything that `nextKey`, which lives as long as the source, comes by until it ends.
    virtual void markEach(ListSource& source, NextKey nextKey) = 0;
    /// Everything that the source, the only one of its lane, has held so far.
    virtual void markHeld(ListSource& source) = 0;
};

/// One collection of list entries in the tree or in shared memory: a directory of next hops, one
/// route table. Subscribes to it, marks what changed, and reads it back when asked. Scheduler's
/// thread only.
class ListSource {
public:
    explicit ListSource(Lane lane) : lane_(lane) {}
    ListSource(const ListSource&) = delete;
    ListSource& operator=(const ListSource&) = delete;
    virtual ~ListSource() = default;

    Lane lane() const { return lane_; }
    /// The provider that the source was given to; from now on marks are noted.
    void sinkIs(MarkSink& sink) { sink_ = &sink; }

    /// The source's first entry after the key (which need not be the source's own), or its first.
    virtual std::optional<EntryKey> nextKey(const std::optional<EntryKey>& after) const = 0;
    /// Reads the entry; false when it is not there.
    virtual bool encode(const EntryKey& key, EncodedEntry& to) = 0;
    /// Appends what a Notification needs besides its stamp to delete the entry.
    virtual void encodeDelete(const EntryKey& key, PackedNotification& notification) const = 0;
    /// The entry shows another value (EncodedEntry::value) than before; nothing: it is not there, or
    /// is held as bytes.
    virtual void shownIs(const EntryKey& /*key*/,
                         std::optional<std::uint64_t> /*before*/,
                         std::optional<std::uint64_t> /*now*/) {}
    /// Who fills the collection has yet to consider the entry: that it is missing says nothing.
    virtual bool pending(const EntryKey& /*key*/) const { return false; }

protected:
    void mark(const EntryKey& key) {
        if (sink_ != nullptr) { sink_->mark(*this, key); }
    }
    void markEach(NextKey keys) {
        if (sink_ != nullptr) { sink_->markEach(*this, std::move(keys)); }
    }
    void markAll() {
        markEach([this](const std::optional<EntryKey>& after) { return nextKey(after); });
    }
    void markHeld() {
        if (sink_ != nullptr) { sink_->markHeld(*this); }
    }

private:
    MarkSink* sink_ = nullptr;
    Lane lane_;
};

}  // namespace Gale
