#include "apps/cli/GnmiText.h"

#include <fmt/format.h>
#include <proto/gnmi.pb.h>

#include <map>

namespace Pel::Cli {
namespace {

std::string escaped(std::string_view text, std::string_view special) {
    std::string result;
    for (const char c : text) {
        if (c == '\\' || special.find(c) != std::string_view::npos) { result += '\\'; }
        result += c;
    }
    return result;
}

void append(const gnmi::Path& path, std::string& text) {
    for (const gnmi::PathElem& elem : path.elem()) {
        text += '/';
        text += escaped(elem.name(), "/[");
        const std::map<std::string, std::string> sorted{elem.key().begin(), elem.key().end()};
        for (const auto& [name, value] : sorted) {
            text += "[" + escaped(name, "=") + "=" + escaped(value, "]") + "]";
        }
    }
}

/// Reads up to an unescaped stop character, which stays; resolves escapes.
std::string upTo(std::string_view stops, std::string_view& rest) {
    std::string result;
    while (!rest.empty() && stops.find(rest.front()) == std::string_view::npos) {
        if (rest.front() == '\\' && rest.size() > 1) { rest.remove_prefix(1); }
        result += rest.front();
        rest.remove_prefix(1);
    }
    return result;
}

bool take(char expected, std::string_view& rest) {
    if (rest.empty() || rest.front() != expected) { return false; }
    rest.remove_prefix(1);
    return true;
}

bool readKeys(std::string_view& rest, gnmi::PathElem& elem, std::string& error) {
    while (take('[', rest)) {
        const std::string name = upTo("=]", rest);
        if (name.empty() || !take('=', rest)) {
            error = "a key is written [name=value]";
            return false;
        }
        const std::string value = upTo("]", rest);
        if (!take(']', rest)) {
            error = "a key has no closing ]";
            return false;
        }
        (*elem.mutable_key())[name] = value;
    }
    return true;
}

std::string hexadecimal(std::string_view bytes) {
    std::string text = "0x";
    for (const char byte : bytes) {
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    return text;
}

}  // namespace

std::string pathText(const gnmi::Path& prefix, const gnmi::Path& below) {
    std::string text;
    append(prefix, text);
    append(below, text);
    return text.empty() ? "/" : text;
}

bool pathFromText(std::string_view text, gnmi::Path& path, std::string& error) {
    path.Clear();
    const std::size_t slash = text.find('/');
    const std::size_t colon = text.find(':');
    if (colon != std::string_view::npos && colon + 1 == slash) {
        path.set_origin(std::string{text.substr(0, colon)});
        text.remove_prefix(colon + 1);
    }
    if (text.empty() || text.front() != '/') {
        error = "a path begins with / (or origin:/)";
        return false;
    }
    while (take('/', text) && !text.empty()) {
        gnmi::PathElem& elem = *path.add_elem();
        elem.set_name(upTo("/[", text));
        if (elem.name().empty()) {
            error = "a path has no empty names";
            return false;
        }
        if (!readKeys(text, elem, error)) { return false; }
    }
    if (!text.empty()) {
        error = "after a key comes / or the end";
        return false;
    }
    return true;
}

std::string valueText(const gnmi::TypedValue& value) {
    switch (value.value_case()) {
        case gnmi::TypedValue::kStringVal:
            return value.string_val();
        case gnmi::TypedValue::kIntVal:
            return std::to_string(value.int_val());
        case gnmi::TypedValue::kUintVal:
            return std::to_string(value.uint_val());
        case gnmi::TypedValue::kBoolVal:
            return value.bool_val() ? "true" : "false";
        case gnmi::TypedValue::kBytesVal:
            return hexadecimal(value.bytes_val());
        case gnmi::TypedValue::kDoubleVal:
            return fmt::format("{}", value.double_val());
        case gnmi::TypedValue::kJsonVal:
            return value.json_val();
        case gnmi::TypedValue::kJsonIetfVal:
            return value.json_ietf_val();
        case gnmi::TypedValue::kAsciiVal:
            return value.ascii_val();
        case gnmi::TypedValue::kProtoBytes:
            return hexadecimal(value.proto_bytes());
        case gnmi::TypedValue::kLeaflistVal: {
            std::string text;
            for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
                text += (text.empty() ? "" : ", ") + valueText(element);
            }
            return "[" + text + "]";
        }
        default:
            return value.ShortDebugString();
    }
}

std::string harmless(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            result += fmt::format("\\x{:02x}", byte);
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace Pel::Cli
