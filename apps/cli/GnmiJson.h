#pragma once

#include <string>

namespace gnmi {
class SubscribeResponse;
}

namespace Pel::Cli {

/// The answer as one JSON object in a line: {"timestamp":...,"atomic":true,"delete":[path, ...],
/// "update":[{"path":...,"value":...}, ...]}, without what it does not have, or {"synced":true}. One
/// that is atomic also has the "prefix" below which it says all there is.
/// Paths are absolute, as pathText() has them. Numbers are written with all their digits; bytes are
/// text as valueText() has them.
std::string jsonLine(const gnmi::SubscribeResponse& response);

}  // namespace Pel::Cli
