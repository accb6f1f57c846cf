#include "platform/Gale/LeafFilter.h"

#include "platform/Gale/WireFields.h"

#include <algorithm>

#include <protozero/pbf_reader.hpp>

namespace Gale {

using namespace WireFields;

namespace {

// Notification: timestamp 1, prefix 2, update 4, delete 5, atomic 6. Update: path 1.
// Path: origin 2, elem 3. PathElem: name 1, key 2 (key 1, value 2).
constexpr int kTimestamp = 1;
constexpr int kPrefix = 2;
constexpr int kUpdate = 4;
constexpr int kDelete = 5;
constexpr int kOrigin = 2;
constexpr int kElem = 3;

std::string_view view(const protozero::data_view& data) {
    return {data.data(), data.size()};
}

/// The last field of this number, empty when there is none.
std::string_view field(std::string_view message, std::uint32_t number) {
    protozero::pbf_reader reader{message.data(), message.size()};
    std::string_view found;
    while (reader.next(number)) { found = view(reader.get_view()); }
    return found;
}

bool bears(std::string_view elem, const std::pair<std::string, std::string>& key) {
    protozero::pbf_reader reader{elem.data(), elem.size()};
    while (reader.next(2)) {
        const std::string_view entry = view(reader.get_view());
        if (field(entry, 1) == key.first) { return field(entry, 2) == key.second; }
    }
    return false;
}

}  // namespace

void LeafFilter::walk(std::string_view path, States& states) const {
    protozero::pbf_reader reader{path.data(), path.size()};
    while (reader.next(kElem)) {
        const std::string_view elem = view(reader.get_view());
        const std::string_view name = field(elem, 1);
        for (std::size_t i = 0; i < patterns_.size(); ++i) {
            if (states[i] == 0 || patterns_[i].covered(states[i])) { continue; }
            states[i] = patterns_[i].step(states[i], name, [&](const PathPattern::Element& asked) {
                return std::all_of(asked.keys.begin(), asked.keys.end(), [&](const auto& key) {
                    return bears(elem, key);
                });
            });
        }
    }
}

bool LeafFilter::covered(const States& states) const {
    for (std::size_t i = 0; i < patterns_.size(); ++i) {
        if (patterns_[i].covered(states[i])) { return true; }
    }
    return false;
}

bool LeafFilter::cut(std::string_view notification, std::string& to) {
    atPrefix_.clear();
    for (const PathPattern& pattern : patterns_) { atPrefix_.push_back(pattern.begin()); }
    const std::size_t begin = to.size();
    bool any = false;
    protozero::pbf_reader reader{notification.data(), notification.size()};
    while (reader.next()) {
        if (reader.wire_type() == protozero::pbf_wire_type::varint) {
            const std::uint32_t tag = reader.tag();
            to.push_back(varintTag(static_cast<int>(tag)));
            appendVarint(to, reader.get_uint64());
            continue;
        }
        const int tag = static_cast<int>(reader.tag());
        const std::string_view content = view(reader.get_view());
        if (tag == kPrefix) { walk(content, atPrefix_); }
        if (tag == kUpdate) {
            atLeaf_ = atPrefix_;
            walk(field(content, 1), atLeaf_);
            if (!covered(atLeaf_)) { continue; }
        }
        any = any || tag == kUpdate || tag == kDelete;
        appendField(to, tag, content);
    }
    if (!any) { to.resize(begin); }
    return any;
}

void LeafFilter::makeDelete(std::string_view notification, std::string& to) {
    protozero::pbf_reader reader{notification.data(), notification.size()};
    std::string_view prefix;
    while (reader.next()) {
        if (reader.tag() == kTimestamp) {
            to.push_back(varintTag(kTimestamp));
            appendVarint(to, reader.get_uint64());
        } else if (reader.tag() == kPrefix) {
            prefix = view(reader.get_view());
        } else {
            reader.skip();
        }
    }
    const std::string_view origin = field(prefix, kOrigin);
    appendHead(to, kPrefix, fieldSize(origin.size()));
    appendField(to, kOrigin, origin);
    std::size_t bytes = 0;
    protozero::pbf_reader elems{prefix.data(), prefix.size()};
    while (elems.next(kElem)) { bytes += fieldSize(elems.get_view().size()); }
    appendHead(to, kDelete, bytes);
    elems = protozero::pbf_reader{prefix.data(), prefix.size()};
    while (elems.next(kElem)) { appendField(to, kElem, view(elems.get_view())); }
}

}  // namespace Gale
