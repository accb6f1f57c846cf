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

void tableTypeIs(const std::string& type, EntityFactory factory) {
    factories()[type] = std::move(factory);
}

Vel::Ref<Vel::Entity> makeTable(const std::string& type, const std::string& path) {
    const auto found = factories().find(type);
    return found == factories().end() ? nullptr : found->second(path);
}

}  // namespace Mesa
