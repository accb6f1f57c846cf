#pragma once

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

#include "model/Aft/EncapHeader.h"
#include "model/Net/IpGenAddr.h"
#include "model/Net/MplsLabel.h"
#include "platform/Gale/NotificationWriter.h"

/// How values that several leaves share are written in the OpenConfig view.
namespace Pel::OcApi::OpenConfigValues {

using Keys = Gale::PathTemplate::Keys;

/// The schema's name of a header type; empty for a type that has none.
std::string_view typeName(EncapHeaderType type);

/// A reserved label goes by its name. Null for the labels that the schema cannot express: 4 to 6 and
/// 8 to 15.
std::optional<Gale::NotificationWriter::Element> labelElement(Nexo::MplsLabel label);

/// Nothing for an address that is none or all zero.
void writeAddress(Gale::NotificationWriter& to,
                  const Gale::PathTemplate& path,
                  Keys keys,
                  const Nexo::IpGenAddr& value);

/// A stack as a leaf-list, whose values must differ: the model's stacks are top first, the schema's
/// bottom first. A stack with a label that comes twice or that the schema cannot express is left
/// out: what is left of it would be another path.
template <class Stack>
void writeLabelList(Gale::NotificationWriter& to,
                    const Gale::PathTemplate& path,
                    Keys keys,
                    const Stack& stack) {
    absl::InlinedVector<Gale::NotificationWriter::Element, 16> elements;
    for (const Nexo::MplsLabel label : stack) {
        const auto element = labelElement(label);
        const bool twice = std::any_of(elements.begin(), elements.end(), [&](const auto& before) {
            return before.number == label.value();
        });
        if (!element || twice) { return; }
        elements.push_back(*element);
    }
    if (elements.empty()) { return; }
    std::reverse(elements.begin(), elements.end());
    to.leafList(path, keys, elements);
}

}  // namespace Pel::OcApi::OpenConfigValues
