#pragma once

#include <string>

#include "platform/Mesa/CollectionControl.h"
#include "platform/Mesa/Table.h"
#include "platform/Store/Writer.h"

namespace Mesa {

/// The producer's side of one table; writes go into the writer's transaction.
template <class Key, class Record>
class TablePublisher {
public:
    /// Registers the table. valid() is false when the store refused it.
    TablePublisher(Store::Writer& writer, const std::string& path, const std::string& type)
        : writer_{&writer},
          path_{path},
          table_{writer.tableIs(path, type, Store::TableKind::table)} {}
    bool valid() const { return table_ != 0; }
    Store::TableId table() const { return table_; }
    /// `rewrite` has readers told even when the record is equal.
    void set(const Key& key, const Record& record, bool rewrite = false) {
        writer_->put(table_,
                     Store::KeyCodec<Key>::encode(key),
                     RecordCodec<Record>::encode(record),
                     rewrite);
    }
    void erase(const Key& key) { writer_->erase(table_, Store::KeyCodec<Key>::encode(key)); }
    /// Says whether changes have paused. Readers hear it after the changes that this writer has made
    /// before it, in this transaction or earlier. The first time it also tells them that another
    /// producer speaks now: who cannot vouch for a table it takes over says at once: not quiesced.
    void quiescedIs(bool quiesced) {
        collectionControlIs(*writer_, path_, table_, quiesced, generation_);
    }

private:
    Store::Writer* writer_;
    std::string path_;
    Store::TableId table_;
    std::uint64_t generation_ = 0;  // 0: has not spoken
};

}  // namespace Mesa
