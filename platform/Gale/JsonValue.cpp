#include "platform/Gale/JsonValue.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"

#include <array>
#include <charconv>

namespace Gale::JsonValue {

using namespace WireFields;

namespace {

void appendNumber(std::uint64_t number, bool quoted, std::string& to) {
    std::array<char, 20> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    if (quoted) { to += '"'; }
    to.append(digits.data(), end);
    if (quoted) { to += '"'; }
}

void appendControl(char c, std::string& to) {
    constexpr std::string_view kHex = "0123456789abcdef";
    to += "\\u00";
    to += kHex[static_cast<unsigned char>(c) >> 4U];
    to += kHex[static_cast<unsigned char>(c) & 0xFU];
}

}  // namespace

void appendText(std::string_view text, std::string& to) {
    to += '"';
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20) {
            appendControl(c, to);
            continue;
        }
        if (c == '"' || c == '\\') { to += '\\'; }
        to += c;
    }
    to += '"';
}

void append(std::string_view typedValue,
            const Schema::LeafNode& leaf,
            ValueEncoding encoding,
            std::string& to) {
    const bool ietf = encoding == ValueEncoding::jsonIetf;
    protozero::pbf_reader reader{typedValue.data(), typedValue.size()};
    if (!reader.next()) {
        to += "null";
        return;
    }
    switch (static_cast<int>(reader.tag())) {
        case Fields::TypedValue::uint:
            appendNumber(reader.get_uint64(), ietf && leaf.type == Leaf::Type::number64, to);
            return;
        case Fields::TypedValue::flag:
            to += reader.get_bool() ? "true" : "false";
            return;
        case Fields::TypedValue::string: {
            const std::string_view text = viewOf(reader.get_view());
            if (ietf && leaf.type == Leaf::Type::identity && !leaf.identityModule.empty()) {
                appendText(leaf.identityModule + ":" + std::string{text}, to);
            } else {
                appendText(text, to);
            }
            return;
        }
        case Fields::TypedValue::leafList: {
            const std::string_view array = viewOf(reader.get_view());
            protozero::pbf_reader elements{array.data(), array.size()};
            char before = '[';
            while (elements.next(Fields::ScalarArray::element)) {
                to += before;
                append(viewOf(elements.get_view()), leaf, encoding, to);
                before = ',';
            }
            if (before == '[') { to += before; }
            to += ']';
            return;
        }
        default:
            to += "null";
    }
}

}  // namespace Gale::JsonValue
