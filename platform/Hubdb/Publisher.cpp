#include "platform/Hubdb/Publisher.h"

#include "platform/Hubdb/RecordFrame.h"

namespace Hubdb {

Publisher::Publisher(Store::Writer& writer)
    : writer_{&writer}, table_{writer.tableIs(kTablePath, kTableType, Store::TableKind::state)} {}

void Publisher::entityIs(std::string_view path, std::string_view type, std::string_view record) {
    writer_->put(table_, path, RecordFrame{type, record}.encode());
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
