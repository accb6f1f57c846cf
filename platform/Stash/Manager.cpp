#include "platform/Stash/Manager.h"

#include "platform/Stash/ContentLayout.h"

namespace Pel::Stash {

Store::TableId Manager::contentTable() {
    if (generation_ != reader_->generation()) { table_ = 0; }
    if (table_ == 0) {
        const auto info = reader_->table(kContentPath);
        if (info && info->type == kContentType) { table_ = info->id; }
        generation_ = reader_->generation();
    }
    return table_;
}

std::optional<std::string_view> Manager::content(const Handle& handle) {
    const Store::TableId table = handle ? contentTable() : 0;
    if (table == 0) { return std::nullopt; }
    const auto bytes = reader_->read(table, Store::KeyCodec<std::uint64_t>::encode(handle.record));
    if (!bytes) { return std::nullopt; }
    const auto frame = ContentFrame::decode(*bytes);
    if (!frame) { throw CorruptionDetectedException{"record frame does not verify"}; }
    if (anchorValidator_ != nullptr && !anchorValidator_->check(handle, frame->version)) {
        throw VersionMismatchException{"record has been recycled"};
    }
    return frame->content;
}

}  // namespace Pel::Stash
