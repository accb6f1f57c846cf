#include "platform/Toggle/Toggle.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("Toggle");

namespace Toggle {
namespace {

constexpr std::uintmax_t kMostBytes = 1U << 20;

struct State {
    std::mutex mutex;
    std::filesystem::path directory{"toggles"};
    std::map<std::pair<std::string, std::string>, bool> known;  // by file and name
};

State& state() {
    static State instance;
    return instance;
}

/// The text of a file that is there to be read; nothing when there is none.
bool readFile(const std::filesystem::path& path, std::string& text) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) { return false; }
    // A pipe or a device of that name would block or never end.
    const bool plain = std::filesystem::is_regular_file(status);
    if (!plain || std::filesystem::file_size(path, error) > kMostBytes || error) {
        TRACE5("toggle file {}: not a file of at most {} bytes", path.string(), kMostBytes);
        return false;
    }
    std::ifstream in{path, std::ios::binary};
    text.resize(kMostBytes);
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    if (in.bad() || !in.is_open()) {
        TRACE5("toggle file {}: cannot be read", path.string());
        return false;
    }
    return true;
}

/// The document, or something that is no object and where it breaks off.
nlohmann::json parse(const std::string& text, std::string& reason) {
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::parse_error& error) {
        const std::size_t end = std::min(error.byte, text.size());
        const auto line =
            1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n');
        reason = ": malformed in line " + std::to_string(line);
        return nullptr;
    }
}

bool readToggle(const std::filesystem::path& path, const std::string& name, bool byDefault) {
    std::string text;
    if (!readFile(path, text)) { return byDefault; }
    std::string reason;
    const auto json = parse(text, reason);
    if (!json.is_object()) {
        TRACE5("toggle file {}: not a JSON object, {} stays {}{}",
               path.string(),
               name,
               byDefault,
               reason);
        return byDefault;
    }
    const auto member = json.find(name);
    if (member == json.end()) { return byDefault; }
    if (!member->is_boolean()) {
        TRACE5("toggle file {}: {} is not true or false, stays {}", path.string(), name, byDefault);
        return byDefault;
    }
    return member->get<bool>();
}

}  // namespace

void directoryIs(std::filesystem::path directory) {
    const std::lock_guard lock{state().mutex};
    state().directory = std::move(directory);
}

bool getToggleState(const std::string& file, const std::string& name, bool byDefault) {
    const std::lock_guard lock{state().mutex};
    const auto known = state().known.find({file, name});
    if (known != state().known.end()) { return known->second; }
    const bool read = readToggle(state().directory / file, name, byDefault);
    state().known.emplace(std::pair{file, name}, read);
    return read;
}

void forgetAll() {
    const std::lock_guard lock{state().mutex};
    state().known.clear();
}

}  // namespace Toggle
