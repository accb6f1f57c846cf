#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace gnmi {
class Path;
class TypedValue;
}  // namespace gnmi

namespace Pel::Cli {

/// The path as text: /network-instances/network-instance[name=DEFAULT]/afts. Keys sorted; "]" and
/// "\" in key values, "/" and "[" in names are escaped with "\". `below` follows `prefix`.
std::string pathText(const gnmi::Path& prefix, const gnmi::Path& below);

/// The reverse, with an origin in front if it has one: "pel:/AftExport". False, with what is wrong
/// in `error`, when the text is no path.
bool pathFromText(std::string_view text, gnmi::Path& path, std::string& error);

/// The value for people: text as it is, bytes as hexadecimal digits, leaf lists in brackets.
std::string valueText(const gnmi::TypedValue& value);

/// What a device says could move the cursor or worse: control characters are shown (\x1b), not sent.
std::string harmless(std::string_view text);

}  // namespace Pel::Cli
