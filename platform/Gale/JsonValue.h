#pragma once

#include "platform/Gale/Schema.h"
#include "platform/Gale/ValueEncoding.h"

#include <string>
#include <string_view>

namespace Gale::JsonValue {

/// Appends the text in quotes, with escapes.
void appendText(std::string_view text, std::string& to);
/// Appends the value of a leaf, given as the bytes of a TypedValue as NotificationWriter makes it:
/// text, number, flag or leaf-list of these.
void append(std::string_view typedValue,
            const Schema::LeafNode& leaf,
            ValueEncoding encoding,
            std::string& to);

}  // namespace Gale::JsonValue
