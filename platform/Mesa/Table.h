#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Mesa/CollectionControl.h"
#include "platform/Store/KeyedMount.h"
#include "platform/Vel/Entity.h"

namespace Mesa {

/// How a record type is read from and written to bytes. Specialised beside the record, usually over
/// a FlatBuffer that is verified when read; decode answers nullopt for bytes that are no record.
///     static std::optional<Record> decode(std::string_view bytes);
///     static std::string encode(const Record& record);
template <class Record>
struct RecordCodec;

/// A mounted shared-memory table, read-only, named by its path.
class Table : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    /// The producer's table is there and its keys are known.
    virtual bool present() const = 0;
    virtual void mountIs(Store::Reader& reader) = 0;
    /// A record that could not be read; counted and traced, and nothing else is lost.
    void doCorruptionDetected(std::string_view text);
    std::uint64_t corruptions() const { return corruptions_; }
    Vel::Publisher<>& onPresent() const { return onPresent_; }
    /// What the producer says of the table as a whole. It says so after onPresent() told that the
    /// table is there, and takes it back before onPresent() tells that it has gone.
    const Vel::Ref<CollectionControl>& collectionControl() const { return collectionControl_; }
    /// Where the control comes from; before the table is mounted. Without, it never says anything.
    void collectionControlsAre(Vel::Ref<CollectionControls> controls);

protected:
    /// The table in the store that this one is mounted from, once all of it has been told; 0: none.
    void storeTableIs(Store::TableId table);
    mutable Vel::Publisher<> onPresent_;

private:
    void handleControl();
    std::uint64_t corruptions_ = 0;
    Store::TableId storeTable_ = 0;
    Vel::Ref<CollectionControl> collectionControl_ = Vel::make<CollectionControl>();
    Vel::Ref<CollectionControls> collectionControls_;  // null: none
    Vel::Subscription onControl_;
};

/// A table with its key and record types. Keys are known, records are read on demand.
template <class Key, class Record>
class TypedTable : public Table, private Store::KeyedMount<Key> {
public:
    using Base = Store::KeyedMount<Key>;
    TypedTable(std::string path, std::string type)
        : Table{std::move(path)}, type_{std::move(type)} {}

    using Base::has;
    using Base::keys;
    using Base::nextKey;
    bool present() const override { return Base::present(); }
    /// The present record, or nullopt when there is none or it is corrupt.
    std::optional<Record> read(const Key& key) {
        const auto bytes = Base::readBytes(key);
        if (!bytes) { return std::nullopt; }
        std::optional<Record> record = RecordCodec<Record>::decode(*bytes);
        if (!record) { doCorruptionDetected(name()); }
        return record;
    }
    /// A record of this key was added, changed or deleted.
    Vel::Publisher<const Key&>& onKey() const { return onKey_; }

    void mountIs(Store::Reader& reader) override {
        Base::mountIs(reader, name(), type_, Store::TableKind::table);
    }

private:
    void changed(const Key& key) override { onKey_.publish(key); }
    void presentChanged() override {
        if (!present()) { storeTableIs(0); }
        onPresent_.publish();
    }
    void settled() override { storeTableIs(present() ? Base::storeTable() : 0); }
    std::string type_;
    mutable Vel::Publisher<const Key&> onKey_;
};

/// Which class serves a type name. Filled by the model before anything is mounted.
using EntityFactory = std::function<Vel::Ref<Vel::Entity>(const std::string& path)>;
void tableTypeIs(const std::string& type, EntityFactory factory);
/// Null when the type is unknown.
Vel::Ref<Vel::Entity> makeTable(const std::string& type, const std::string& path);

}  // namespace Mesa
