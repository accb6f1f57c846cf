#include "platform/Gale/WirePath.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"

#include <algorithm>

namespace Gale::WirePath {

using namespace WireFields;

namespace {

bool bears(std::string_view elem, const std::pair<std::string, std::string>& key) {
    protozero::pbf_reader reader{elem.data(), elem.size()};
    while (reader.next(Fields::PathElem::key)) {
        const std::string_view entry = viewOf(reader.get_view());
        if (fieldOf(entry, Fields::MapEntry::key) == key.first) {
            return fieldOf(entry, Fields::MapEntry::value) == key.second;
        }
    }
    return false;
}

}  // namespace

std::string_view name(std::string_view elem) {
    return fieldOf(elem, Fields::PathElem::name);
}

void appendNames(std::string_view path, std::string& to) {
    protozero::pbf_reader reader{path.data(), path.size()};
    while (reader.next(Fields::Path::elem)) {
        if (!to.empty()) { to += '/'; }
        to += name(viewOf(reader.get_view()));
    }
}

PathPattern::State step(const PathPattern& pattern,
                        PathPattern::State state,
                        std::string_view elem) {
    return pattern.step(state, name(elem), [&](const PathPattern::Element& asked) {
        return std::all_of(asked.keys.begin(), asked.keys.end(), [&](const auto& key) {
            return bears(elem, key);
        });
    });
}

}  // namespace Gale::WirePath
