#include "platform/Hubdb/Publisher.h"

#include "platform/Hubdb/RecordFrame.h"

namespace Hubdb {

Publisher::Publisher(Store::Writer& writer)
    : writer_{&writer}, table_{writer.tableIs(kTablePath, kTableType, Store::TableKind::state)} {}

void Publisher::entityIs(std::string_view path, std::string_view type, std::string_view record) {
    writer_->put(table_, path, RecordFrame{type, record}.encode());
}

std::optional<std::string_view> Publisher::entity(std::string_view path, std::string_view type) {
    const auto bytes = writer_->get(table_, path);
    const auto frame = bytes ? RecordFrame::decode(*bytes) : std::nullopt;
    return frame && frame->type == type ? std::optional{frame->record} : std::nullopt;
}

void Publisher::entityDel(std::string_view path) {
    writer_->erase(table_, path);
}

void Publisher::forEachPath(absl::FunctionRef<void(std::string_view path)> visit) {
    writer_->forEach(table_, [&](std::string_view path, std::string_view) {
        visit(path);
        return true;
    });
}

}  // namespace Hubdb
