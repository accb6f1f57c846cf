#include "platform/Gale/LeafFilter.h"

#include "platform/Gale/GnmiFields.h"
#include "platform/Gale/WireFields.h"
#include "platform/Gale/WirePath.h"

namespace Gale {

using namespace WireFields;

void LeafFilter::walk(std::string_view path, States& states) const {
    protozero::pbf_reader reader{path.data(), path.size()};
    while (reader.next(Fields::Path::elem)) {
        const std::string_view elem = viewOf(reader.get_view());
        for (std::size_t i = 0; i < patterns_.size(); ++i) {
            if (states[i] == 0 || patterns_[i].covered(states[i])) { continue; }
            states[i] = WirePath::step(patterns_[i], states[i], elem);
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
        const std::string_view content = viewOf(reader.get_view());
        if (tag == Fields::Notification::prefix) { walk(content, atPrefix_); }
        const bool update = tag == Fields::Notification::update;
        if (update || tag == Fields::Notification::deletion) {
            atLeaf_ = atPrefix_;
            walk(update ? fieldOf(content, Fields::Update::path) : content, atLeaf_);
            if (!covered(atLeaf_)) { continue; }
        }
        any = any || update;
        appendField(to, tag, content);
    }
    if (!any) { to.resize(begin); }
    return any;
}

void LeafFilter::makeDelete(std::string_view notification, std::string& to) {
    protozero::pbf_reader reader{notification.data(), notification.size()};
    std::string_view prefix;
    while (reader.next()) {
        if (reader.tag() == Fields::Notification::timestamp) {
            to.push_back(varintTag(Fields::Notification::timestamp));
            appendVarint(to, reader.get_uint64());
        } else if (reader.tag() == Fields::Notification::prefix) {
            prefix = viewOf(reader.get_view());
        } else {
            reader.skip();
        }
    }
    const std::string_view origin = fieldOf(prefix, Fields::Path::origin);
    appendHead(to, Fields::Notification::prefix, fieldSize(origin.size()));
    appendField(to, Fields::Path::origin, origin);
    std::size_t bytes = 0;
    protozero::pbf_reader elems{prefix.data(), prefix.size()};
    while (elems.next(Fields::Path::elem)) { bytes += fieldSize(elems.get_view().size()); }
    appendHead(to, Fields::Notification::deletion, bytes);
    elems = protozero::pbf_reader{prefix.data(), prefix.size()};
    while (elems.next(Fields::Path::elem)) {
        appendField(to, Fields::Path::elem, viewOf(elems.get_view()));
    }
}

}  // namespace Gale
