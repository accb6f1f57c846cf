#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Mesa/Table.h"
#include "platform/Stash/Handle.h"
#include "platform/Store/Writer.h"

namespace Pel::Stash {

/// The producer's side of deduplication: content to handle, counted. Equal contents share one
/// record; when the last user lets go the record goes, its id is recycled with another version.
/// Counts live in the store, in the same transaction as the entries that use them, so a killed
/// producer leaks nothing.
class ContentPublisher {
public:
    explicit ContentPublisher(Store::Writer& writer);
    bool valid() const;
    /// One more user of this content.
    Handle contentIs(std::string_view content);
    /// One user less; harmless for a null or unknown handle.
    void contentDel(const Handle& handle);

private:
    struct Id {
        std::uint64_t record;
        std::uint32_t version;
    };
    Id newId();
    void hashDel(std::uint64_t hash, std::uint64_t record);
    std::string numbersOf(Store::TableId table, std::uint64_t key);
    Store::Writer* writer_;
    Store::TableId records_;
    Store::TableId byHash_;
    Store::TableId free_;
};

/// The producer's side of one collection of a set: the entry of a key and its record go in and out
/// together. Entry has a member `handle` and a RecordCodec of Mesa.
template <class Key, class Entry>
class CollectionPublisher {
public:
    CollectionPublisher(Store::Writer& writer,
                        ContentPublisher& contents,
                        const std::string& path,
                        const std::string& type)
        : writer_{&writer},
          contents_{&contents},
          table_{writer.tableIs(path, type, Store::TableKind::stash)} {}
    bool valid() const { return table_ != 0; }
    Store::TableId table() const { return table_; }
    void set(const Key& key, Entry entry, std::string_view content) {
        const std::string keyBytes = Store::KeyCodec<Key>::encode(key);
        const Handle old = present(keyBytes);
        entry.handle = contents_->contentIs(content);
        contents_->contentDel(old);
        writer_->put(table_, keyBytes, Mesa::RecordCodec<Entry>::encode(entry));
    }
    void erase(const Key& key) {
        const std::string keyBytes = Store::KeyCodec<Key>::encode(key);
        contents_->contentDel(present(keyBytes));
        writer_->erase(table_, keyBytes);
    }

private:
    Handle present(const std::string& keyBytes) {
        const auto bytes = writer_->get(table_, keyBytes);
        const auto entry =
            bytes ? Mesa::RecordCodec<Entry>::decode(*bytes) : std::optional<Entry>{};
        return entry ? entry->handle : Handle{};
    }
    Store::Writer* writer_;
    ContentPublisher* contents_;
    Store::TableId table_;
};

}  // namespace Pel::Stash
