#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

// Text forms of gRPC over HTTP/2. All pure; any thread.

/// A status message as the value of "grpc-message": printable ASCII but '%' as it is, all else %XX.
/// Messages over 1,024 bytes are cut at a character, so that trailers stay under clients' limits.
std::string percentEncode(std::string_view message);

/// Standard alphabet, without padding.
std::string base64Encode(std::string_view bytes);
/// With or without padding; nothing when malformed.
std::optional<std::string> base64Decode(std::string_view text);

/// The value of "grpc-timeout": 1 to 8 digits and one of H M S m u n. Nothing when malformed.
std::optional<Kiln::Duration> parseTimeout(std::string_view text);

}  // namespace Gale::Wire
