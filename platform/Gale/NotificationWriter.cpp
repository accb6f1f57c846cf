#include "platform/Gale/NotificationWriter.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"

#include <array>

namespace Gale {

using WireFields::appendField;
using WireFields::appendHead;
using WireFields::appendVarint;
using WireFields::fieldSize;
using WireFields::varintSize;
using WireFields::varintTag;

namespace {

std::size_t elementSize(const NotificationWriter::Element& element) {
    return element.name.empty() ? 1 + varintSize(element.number) : fieldSize(element.name.size());
}

}  // namespace

void NotificationWriter::prefix(const PathTemplate& path, Keys keys) {
    appendHead(to_, Fields::Notification::prefix, path.size(keys));
    path.append(to_, keys);
}

void NotificationWriter::updateHead(const PathTemplate& path,
                                    Keys keys,
                                    std::size_t typedValueBytes) {
    const std::size_t pathBytes = path.size(keys);
    appendHead(
        to_, Fields::Notification::update, fieldSize(pathBytes) + fieldSize(typedValueBytes));
    path.appendToUpdate(to_, keys, pathBytes);
    appendVarint(to_, typedValueBytes);
}

void NotificationWriter::varint(int field, std::uint64_t value) {
    std::array<char, 1 + protozero::max_varint_length> bytes;
    bytes[0] = varintTag(field);
    const int size = 1 + protozero::write_varint(bytes.data() + 1, value);
    to_.append(std::string_view{bytes.data(), static_cast<std::size_t>(size)});
}

void NotificationWriter::leaf(const PathTemplate& path, Keys keys, std::uint64_t value) {
    updateHead(path, keys, 1 + varintSize(value));
    varint(Fields::TypedValue::uint, value);
}

void NotificationWriter::leaf(const PathTemplate& path, Keys keys, std::string_view value) {
    updateHead(path, keys, fieldSize(value.size()));
    appendField(to_, Fields::TypedValue::string, value);
}

void NotificationWriter::flagLeaf(const PathTemplate& path, Keys keys, bool value) {
    updateHead(path, keys, 2);
    varint(Fields::TypedValue::flag, value ? 1 : 0);
}

void NotificationWriter::leafList(const PathTemplate& path,
                                  Keys keys,
                                  std::span<const Element> elements) {
    std::size_t arrayBytes = 0;
    for (const Element& element : elements) { arrayBytes += fieldSize(elementSize(element)); }
    updateHead(path, keys, fieldSize(arrayBytes));
    appendHead(to_, Fields::TypedValue::leafList, arrayBytes);
    for (const Element& element : elements) {
        appendHead(to_, Fields::ScalarArray::element, elementSize(element));
        if (element.name.empty()) {
            varint(Fields::TypedValue::uint, element.number);
        } else {
            appendField(to_, Fields::TypedValue::string, element.name);
        }
    }
}

void NotificationWriter::leafDeletion(const PathTemplate& path, Keys keys) {
    appendHead(to_, Fields::Notification::deletion, path.size(keys));
    path.append(to_, keys);
}

void NotificationWriter::atomic() {
    varint(Fields::Notification::atomic, 1);
}

void NotificationWriter::deletion(std::string_view origin, const PathTemplate& path, Keys keys) {
    appendHead(to_, Fields::Notification::prefix, fieldSize(origin.size()));
    appendField(to_, Fields::Path::origin, origin);
    appendHead(to_, Fields::Notification::deletion, path.size(keys));
    path.append(to_, keys);
}

}  // namespace Gale
