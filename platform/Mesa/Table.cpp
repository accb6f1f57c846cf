#include "platform/Mesa/Table.h"

#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("Mesa");

namespace Mesa {
namespace {

std::map<std::string, EntityFactory>& factories() {
    static std::map<std::string, EntityFactory> all;
    return all;
}

}  // namespace

void Table::doCorruptionDetected(std::string_view text) {
    ++corruptions_;
    TRACE5("table {}: corruption: {}", name(), text);
}

void Table::collectionControlsAre(Vel::Ref<CollectionControls> controls) {
    collectionControls_ = std::move(controls);
    onControl_ = collectionControls_->onRecord(name()).subscribe([this] { handleControl(); });
}

void Table::storeTableIs(Store::TableId table) {
    if (std::exchange(storeTable_, table) != table) { handleControl(); }
}

/// What was said of another table of this path, or of one that has not been told yet, does not count.
void Table::handleControl() {
    CollectionControlRecord record;
    if (collectionControls_ && storeTable_ != 0) { record = collectionControls_->record(name()); }
    collectionControl_->recordIs(record.table == storeTable_ ? record : CollectionControlRecord{});
}

void tableTypeIs(const std::string& type, EntityFactory factory) {
    factories()[type] = std::move(factory);
}

Vel::Ref<Vel::Entity> makeTable(const std::string& type, const std::string& path) {
    const auto found = factories().find(type);
    return found == factories().end() ? nullptr : found->second(path);
}

}  // namespace Mesa
