#include "platform/Gale/JsonConverter.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/JsonValue.h"
#include "platform/Gale/WireFields.h"
#include "platform/Gale/WirePath.h"

namespace Gale {

using namespace WireFields;

void JsonConverter::convert(const Schema::Kind& kind,
                            std::string_view notification,
                            std::string& to) {
    const int member = encoding_ == ValueEncoding::jsonIetf ? Fields::TypedValue::jsonIetf
                                                            : Fields::TypedValue::json;
    protozero::pbf_reader reader{notification.data(), notification.size()};
    while (reader.next()) {
        const int tag = static_cast<int>(reader.tag());
        if (reader.wire_type() == protozero::pbf_wire_type::varint) {
            to.push_back(varintTag(tag));
            appendVarint(to, reader.get_uint64());
            continue;
        }
        const std::string_view content = viewOf(reader.get_view());
        if (tag != Fields::Notification::update) {
            appendField(to, tag, content);
            continue;
        }
        const std::string_view path = fieldOf(content, Fields::Update::path);
        names_.clear();
        WirePath::appendNames(path, names_);
        value_.clear();
        JsonValue::append(
            fieldOf(content, Fields::Update::val), kind.leaf(names_), encoding_, value_);
        const std::size_t typedValue = fieldSize(value_.size());
        appendHead(to, tag, fieldSize(path.size()) + fieldSize(typedValue));
        appendField(to, Fields::Update::path, path);
        appendHead(to, Fields::Update::val, typedValue);
        appendField(to, member, value_);
    }
}

}  // namespace Gale
