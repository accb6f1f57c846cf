#include "platform/Gale/NotificationWriter.h"

#include "platform/Gale/WireFields.h"

namespace Gale {

using namespace WireFields;

namespace {

// Notification: timestamp 1, prefix 2, update 4, delete 5, atomic 6.
constexpr int kTimestamp = 1;
constexpr int kPrefix = 2;
constexpr int kUpdate = 4;
constexpr int kDelete = 5;
constexpr int kAtomic = 6;
// Path: origin 2.
constexpr int kOrigin = 2;
// Update: path 1, val 3.
constexpr int kPath = 1;
constexpr int kVal = 3;
// TypedValue: string_val 1, uint_val 3, bool_val 4, leaflist_val 8. ScalarArray: element 1.
constexpr int kString = 1;
constexpr int kUint = 3;
constexpr int kBool = 4;
constexpr int kLeafList = 8;
constexpr int kElement = 1;

std::size_t elementSize(const NotificationWriter::Element& element) {
    return element.name.empty() ? 1 + varintSize(element.number) : fieldSize(element.name.size());
}

}  // namespace

void NotificationWriter::stamp(std::int64_t nanoseconds) {
    to_.push_back(varintTag(kTimestamp));
    appendVarint(to_, static_cast<std::uint64_t>(nanoseconds));
}

void NotificationWriter::prefix(const PathTemplate& path, Keys keys) {
    appendHead(to_, kPrefix, path.size(keys));
    path.append(to_, keys);
}

void NotificationWriter::updateHead(const PathTemplate& path,
                                    Keys keys,
                                    std::size_t typedValueBytes) {
    const std::size_t pathBytes = path.size(keys);
    appendHead(to_, kUpdate, fieldSize(pathBytes) + fieldSize(typedValueBytes));
    appendHead(to_, kPath, pathBytes);
    path.append(to_, keys);
    appendHead(to_, kVal, typedValueBytes);
}

void NotificationWriter::leaf(const PathTemplate& path, Keys keys, std::uint64_t value) {
    updateHead(path, keys, 1 + varintSize(value));
    to_.push_back(varintTag(kUint));
    appendVarint(to_, value);
}

void NotificationWriter::leaf(const PathTemplate& path, Keys keys, std::string_view value) {
    updateHead(path, keys, fieldSize(value.size()));
    appendField(to_, kString, value);
}

void NotificationWriter::flagLeaf(const PathTemplate& path, Keys keys, bool value) {
    updateHead(path, keys, 2);
    to_.push_back(varintTag(kBool));
    to_.push_back(value ? '\1' : '\0');
}

void NotificationWriter::leafList(const PathTemplate& path,
                                  Keys keys,
                                  std::span<const Element> elements) {
    std::size_t arrayBytes = 0;
    for (const Element& element : elements) { arrayBytes += fieldSize(elementSize(element)); }
    updateHead(path, keys, fieldSize(arrayBytes));
    appendHead(to_, kLeafList, arrayBytes);
    for (const Element& element : elements) {
        appendHead(to_, kElement, elementSize(element));
        if (element.name.empty()) {
            to_.push_back(varintTag(kUint));
            appendVarint(to_, element.number);
        } else {
            appendField(to_, kString, element.name);
        }
    }
}

void NotificationWriter::atomic() {
    to_.push_back(varintTag(kAtomic));
    to_.push_back('\1');
}

void NotificationWriter::deletion(std::string_view origin, const PathTemplate& path, Keys keys) {
    appendHead(to_, kPrefix, fieldSize(origin.size()));
    appendField(to_, kOrigin, origin);
    appendHead(to_, kDelete, path.size(keys));
    path.append(to_, keys);
}

}  // namespace Gale
