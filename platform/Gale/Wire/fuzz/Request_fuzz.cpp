#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "platform/Gale/Wire/Codec.h"
#include "platform/Gale/Wire/MessageReader.h"
#include "platform/Gale/Wire/RequestHead.h"

namespace {

using namespace Gale::Wire;

constexpr std::size_t kMaxMessage = 1000;

/// Lines "name=value" are the fields of a head.
void feedHead(std::string_view text) {
    RequestHead head{2000};
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t at = std::min(line.find('='), line.size());
        head.add(line.substr(0, at), line.substr(std::min(at + 1, line.size())));
    }
    static_cast<void>(head.check());
    std::size_t kept = head.path().size();
    for (const MetadataEntry& entry : head.metadata()) {
        kept += entry.name.size() + entry.value.size();
        if (entry.name.ends_with("-bin") &&
            base64Decode(base64Encode(entry.value)) != entry.value) {
            std::abort();
        }
    }
    // Values joined by commas repeat their name: at most one name for each byte.
    if (kept > 2000 * 2000) { std::abort(); }
}

/// The messages of the same bytes must not depend on how they are cut.
std::string readCut(std::span<const std::byte> bytes, std::size_t step) {
    MessageReader reader{kMaxMessage};
    std::string seen;
    while (!bytes.empty()) {
        const auto piece = bytes.first(std::min(step, bytes.size()));
        bytes = bytes.subspan(piece.size());
        const auto failure = reader.feed(piece, [&](auto message) {
            if (message.size() > kMaxMessage) { std::abort(); }
            seen += std::to_string(message.size()) + ":";
            seen.append(reinterpret_cast<const char*>(message.data()), message.size());
        });
        if (reader.buffered() > kMaxMessage) { std::abort(); }
        if (failure) { return seen + failure->message; }
    }
    return seen + (reader.end() ? "inside" : "whole");
}

}  // namespace

/// Any bytes are a head and a stream of messages that are taken, or refused with a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text{reinterpret_cast<const char*>(data), size};
    feedHead(text);
    const auto bytes = std::as_bytes(std::span{data, size});
    if (readCut(bytes, size + 1) != readCut(bytes, 1)) { std::abort(); }
    const std::string encoded = percentEncode(text);
    for (const char c : encoded) {
        if (c < 0x20 || c > 0x7E) { std::abort(); }
    }
    return 0;
}
