#include "platform/Gale/PathTemplate.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"
#include "platform/Vel/Assert.h"

#include <utility>

namespace Gale {

using WireFields::appendField;
using WireFields::appendHead;
using WireFields::fieldSize;
using WireFields::lengthTag;

namespace {

std::string field(int number, std::string_view content) {
    std::string bytes;
    appendField(bytes, number, content);
    return bytes;
}

}  // namespace

PathTemplate::PathTemplate(std::string_view text, std::string_view origin) {
    std::string tail;
    if (!origin.empty()) { tail = field(Fields::Path::origin, origin); }
    while (!text.empty()) {
        const std::string_view element = text.substr(0, text.find('/'));
        text.remove_prefix(element.size() < text.size() ? element.size() + 1 : text.size());
        const std::size_t bracket = element.find('[');
        const std::string_view qualified = element.substr(0, bracket);
        const std::string name =
            field(Fields::PathElem::name, qualified.substr(qualified.find(':') + 1));
        if (bracket == std::string_view::npos) {
            appendField(tail, Fields::Path::elem, name);
            continue;
        }
        VEL_ASSERT(element.find(']') == element.size() - 1);
        const std::string_view key = element.substr(bracket + 1, element.size() - bracket - 2);
        keyed_.emplace_back(std::exchange(tail, {}), name, field(Fields::MapEntry::key, key));
    }
    tail_ = &Segments::of(tail);
    if (keyed_.empty()) { tail = field(Fields::Update::path, tail); }
    updateTail_ = &Segments::of(tail + lengthTag(Fields::Update::val));
}

PathTemplate::Keyed::Keyed(std::string_view complete,
                           std::string_view elementName,
                           std::string_view nameOfKey)
    : before(complete), name(elementName), keyName(nameOfKey) {
    for (std::size_t size = 0; size < heads.size(); ++size) {
        heads[size] = &Segments::of(headOf(size));
    }
}

std::string PathTemplate::Keyed::headOf(std::size_t keySize) const {
    std::string head = before;
    const std::size_t entrySize = keyName.size() + fieldSize(keySize);
    appendHead(head, Fields::Path::elem, name.size() + fieldSize(entrySize));
    head += name;
    appendHead(head, Fields::PathElem::key, entrySize);
    head += keyName;
    appendHead(head, Fields::MapEntry::value, keySize);
    return head;
}

std::size_t PathTemplate::Keyed::size(std::string_view key) const {
    const std::size_t head =
        key.size() < heads.size() ? heads[key.size()]->bytes.size() : headOf(key.size()).size();
    return head + key.size();
}

void PathTemplate::Keyed::append(PackedNotification& to, std::string_view key) const {
    if (key.size() < heads.size()) {
        to.append(*heads[key.size()]);
    } else {
        to.append(headOf(key.size()));
    }
    to.append(key);
}

std::size_t PathTemplate::size(Keys keys) const {
    VEL_ASSERT(keys.size() >= keyed_.size());
    std::size_t bytes = tail_->bytes.size();
    for (std::size_t i = 0; i < keyed_.size(); ++i) { bytes += keyed_[i].size(keys[i]); }
    return bytes;
}

void PathTemplate::appendKeyed(PackedNotification& to, Keys keys) const {
    for (std::size_t i = 0; i < keyed_.size(); ++i) { keyed_[i].append(to, keys[i]); }
}

void PathTemplate::append(PackedNotification& to, Keys keys) const {
    VEL_ASSERT(keys.size() >= keyed_.size());
    appendKeyed(to, keys);
    to.append(*tail_);
}

void PathTemplate::appendToUpdate(PackedNotification& to, Keys keys, std::size_t size) const {
    if (!keyed_.empty()) {
        appendHead(to, Fields::Update::path, size);
        appendKeyed(to, keys);
    }
    to.append(*updateTail_);
}

}  // namespace Gale
