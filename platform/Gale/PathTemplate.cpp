#include "platform/Gale/PathTemplate.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"
#include "platform/Vel/Assert.h"

#include <utility>

namespace Gale {

using namespace WireFields;

namespace {

std::string field(int number, std::string_view content) {
    std::string bytes;
    appendField(bytes, number, content);
    return bytes;
}

}  // namespace

PathTemplate::PathTemplate(std::string_view text, std::string_view origin) {
    if (!origin.empty()) { tail_ = field(Fields::Path::origin, origin); }
    while (!text.empty()) {
        const std::string_view element = text.substr(0, text.find('/'));
        text.remove_prefix(element.size() < text.size() ? element.size() + 1 : text.size());
        const std::size_t bracket = element.find('[');
        const std::string_view qualified = element.substr(0, bracket);
        const std::string name =
            field(Fields::PathElem::name, qualified.substr(qualified.find(':') + 1));
        if (bracket == std::string_view::npos) {
            appendField(tail_, Fields::Path::elem, name);
            continue;
        }
        VEL_ASSERT(element.find(']') == element.size() - 1);
        const std::string_view key = element.substr(bracket + 1, element.size() - bracket - 2);
        keyed_.push_back({std::exchange(tail_, {}), name, field(Fields::MapEntry::key, key)});
    }
}

std::size_t PathTemplate::entrySize(const Keyed& keyed, std::string_view key) {
    return keyed.keyName.size() + fieldSize(key.size());
}

std::size_t PathTemplate::elementSize(const Keyed& keyed, std::string_view key) {
    return keyed.name.size() + fieldSize(entrySize(keyed, key));
}

std::size_t PathTemplate::size(Keys keys) const {
    VEL_ASSERT(keys.size() >= keyed_.size());
    std::size_t bytes = tail_.size();
    for (std::size_t i = 0; i < keyed_.size(); ++i) {
        bytes += keyed_[i].before.size() + fieldSize(elementSize(keyed_[i], keys[i]));
    }
    return bytes;
}

void PathTemplate::append(std::string& to, Keys keys) const {
    VEL_ASSERT(keys.size() >= keyed_.size());
    for (std::size_t i = 0; i < keyed_.size(); ++i) {
        const Keyed& keyed = keyed_[i];
        to.append(keyed.before);
        appendHead(to, Fields::Path::elem, elementSize(keyed, keys[i]));
        to.append(keyed.name);
        appendHead(to, Fields::PathElem::key, entrySize(keyed, keys[i]));
        to.append(keyed.keyName);
        appendField(to, Fields::MapEntry::value, keys[i]);
    }
    to.append(tail_);
}

}  // namespace Gale
