#include "platform/Gale/Segments.h"

#include <array>
#include <deque>
#include <map>
#include <mutex>
#include <string>

namespace Gale::Segments {

namespace {

struct Table {
    std::mutex mutex;
    std::deque<std::string> texts;            // with kReadable bytes behind each
    std::map<std::string_view, Segment> all;  // nodes stay where they are
    std::size_t numbers = 0;
};

Table& table() {
    static auto* const kept = new Table;  // outlives who still sends at the end of the process
    return *kept;
}

// Outside the table: a reader takes no lock. An element is written before its number is known to
// anybody, and never again.
std::array<std::string_view, kMost + 1> numbered;

}  // namespace

const Segment& of(std::string_view bytes) {
    Table& in = table();
    const std::lock_guard lock{in.mutex};
    if (const auto found = in.all.find(bytes); found != in.all.end()) { return found->second; }
    const std::string& text =
        in.texts.emplace_back(std::string{bytes} + std::string(kReadable, '\0'));
    const auto added = in.all.try_emplace(std::string_view{text}.substr(0, bytes.size())).first;
    added->second.bytes = added->first;
    if (bytes.size() >= kLeastBytes && in.numbers < kMost) {
        added->second.number = static_cast<std::uint16_t>(++in.numbers);
        numbered[in.numbers] = added->second.bytes;
    }
    return added->second;
}

std::span<const std::string_view> byNumber() {
    return numbered;
}

}  // namespace Gale::Segments
