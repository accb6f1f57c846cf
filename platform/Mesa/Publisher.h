#pragma once

#include <string>

#include "platform/Mesa/Table.h"
#include "platform/Store/Writer.h"

namespace Mesa {

/// The producer's side of one table; writes go into the writer's transaction.
template <class Key, class Record>
class TablePublisher {
public:
    /// Registers the table. valid() is false when the store refused it.
    TablePublisher(Store::Writer& writer, const std::string& path, const std::string& type)
        : writer_{&writer}, table_{writer.tableIs(path, type, Store::TableKind::table)} {}
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

private:
    Store::Writer* writer_;
    Store::TableId table_;
};

}  // namespace Mesa
