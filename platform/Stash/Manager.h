#pragma once

#include <optional>
#include <string_view>

#include "platform/Stash/AnchorValidator.h"
#include "platform/Stash/Handle.h"
#include "platform/Store/KeyCodec.h"
#include "platform/Store/Reader.h"

namespace Pel::Stash {

/// How a record type of the stash is read: specialised beside the record.
///     static Vel::Ref<const Record> decode(std::string_view bytes);  // null: they do not verify
///     static std::string encode(const Record& record);
template <class Record>
struct RecordCodec;

/// A reader's door to the deduplicated records. Holds at most one anchor validator, the one of the
/// read under way.
class Manager final : public Vel::RefCounted {
public:
    explicit Manager(Vel::Ref<Store::Reader> reader) : reader_{std::move(reader)} {}

    Mem::AnchorValidator* anchorValidator() const { return anchorValidator_; }
    void anchorValidatorIs(Mem::AnchorValidator* validator) { anchorValidator_ = validator; }

    /// The record's content; the view holds until the end of the scheduler's slice. nullopt when
    /// there is no such record. Throws VersionMismatchException when a validator is installed and
    /// finds another version, CorruptionDetectedException when the record's frame is broken.
    std::optional<std::string_view> content(const Handle& handle);

private:
    Store::TableId contentTable();
    Vel::Ref<Store::Reader> reader_;
    Store::TableId table_ = 0;  // of the contents, in the store of this generation
    std::uint64_t generation_ = 0;
    Mem::AnchorValidator* anchorValidator_ = nullptr;
};

/// Reads a record through its handle. Null when there is none; throws as Manager::content() does,
/// and CorruptionDetectedException when the content does not verify.
template <class Record>
Vel::Ref<const Record> destash(const Handle& handle, Manager& manager) {
    const auto bytes = manager.content(handle);
    if (!bytes) { return nullptr; }
    Vel::Ref<const Record> record = RecordCodec<Record>::decode(*bytes);
    if (!record) { throw CorruptionDetectedException{"record content does not verify"}; }
    return record;
}

}  // namespace Pel::Stash
