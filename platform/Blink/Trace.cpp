#include "platform/Blink/Trace.h"

#include <fmt/format.h>

#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Blink/RingWriter.h"

namespace Blink {
namespace {

class Registry {
public:
    Handle& handle(std::string_view name) {
        const std::lock_guard lock{mutex_};
        auto it = handles_.find(name);
        if (it == handles_.end()) {
            auto made = std::make_unique<Handle>(std::string{name});
            const auto set = levels_.find(name);
            made->levelIs(set != levels_.end() ? set->second : defaultLevel_);
            it = handles_.emplace(std::string{name}, std::move(made)).first;
        }
        return *it->second;
    }

    void levelIs(const std::string& name, int level) {
        const std::lock_guard lock{mutex_};
        if (name == "*") {
            defaultLevel_ = level;
            levels_.clear();
            for (auto& [key, handle] : handles_) { handle->levelIs(level); }
            return;
        }
        levels_[name] = level;
        const auto it = handles_.find(name);
        if (it != handles_.end()) { it->second->levelIs(level); }
    }

private:
    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<Handle>, std::less<>> handles_;
    std::map<std::string, int, std::less<>> levels_;
    int defaultLevel_ = 0;
};

Registry& registry() {
    static auto* instance = new Registry;  // never destroyed: static objects trace while they die
    return *instance;
}

using Buffer = fmt::basic_memory_buffer<char, 1024>;  // a text line allocates nothing

void append(Buffer& to, std::string_view text) {
    to.append(text.data(), text.data() + text.size());
}

/// Control characters would let foreign bytes drive the reader's terminal or forge lines.
void appendPrintable(Buffer& to, std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            fmt::format_to(std::back_inserter(to), "\\x{:02x}", byte);
        } else {
            to.push_back(c);
        }
    }
}

/// Reads the arguments of one message in turn.
class ArgumentReader {
public:
    ArgumentReader(const std::byte* bytes, std::size_t size) : at_{bytes}, end_{bytes + size} {}

    /// Appends the next argument; false when the bytes do not hold one.
    bool appendTo(Buffer& to) {
        if (at_ == end_) { return false; }
        switch (static_cast<char>(*at_++)) {
            case 'b':
                return number<std::uint8_t>([&](auto v) { append(to, v != 0 ? "true" : "false"); });
            case 'i':
                return plain<std::int64_t>(to);
            case 'u':
                return plain<std::uint64_t>(to);
            case 'd':
                return plain<double>(to);
            case 's':
                return text(to);
            default:
                return false;
        }
    }

private:
    template <class T>
    bool plain(Buffer& to) {
        return number<T>([&to](T v) { fmt::format_to(std::back_inserter(to), "{}", v); });
    }
    template <class T, class Show>
    bool number(Show show) {
        T value{};
        if (static_cast<std::size_t>(end_ - at_) < sizeof value) { return false; }
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        show(value);
        return true;
    }
    bool text(Buffer& to) {
        std::uint16_t length = 0;
        if (!number<std::uint16_t>([&](auto v) { length = v; }) || end_ - at_ < length) {
            return false;
        }
        appendPrintable(to, {reinterpret_cast<const char*>(at_), length});
        at_ += length;
        return true;
    }
    const std::byte* at_;
    const std::byte* end_;
};

void appendMessage(Buffer& to, std::string_view format, const std::byte* bytes, std::size_t size) {
    ArgumentReader arguments{bytes, size};
    bool cut = false;
    for (std::size_t i = 0; i < format.size(); ++i) {
        const std::string_view pair = format.substr(i, 2);
        if (pair == "{}") {
            if (cut || !arguments.appendTo(to)) {
                cut = true;
                append(to, "{}");
            }
            ++i;
        } else {
            appendPrintable(to, pair.substr(0, 1));
            if (pair == "{{" || pair == "}}") { ++i; }
        }
    }
    if (cut) { append(to, " (arguments cut)"); }
}

void writeText(const CallSite& site, const Handle& handle, const Arguments& arguments) {
    Buffer line;
    fmt::format_to(
        std::back_inserter(line), "{} {} {}: ", handle.name(), site.level, site.function);
    appendMessage(line, site.format, arguments.data(), arguments.size());
    line.push_back('\n');
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

Handle& handle(std::string_view name) {
    return registry().handle(name);
}

bool levelsIs(std::string_view spec) {
    std::vector<std::pair<std::string, int>> parsed;
    while (!spec.empty()) {
        const std::string_view item = spec.substr(0, spec.find(','));
        if (item.size() + 1 == spec.size()) { return false; }  // nothing after the last comma
        spec.remove_prefix(item.size() == spec.size() ? item.size() : item.size() + 1);
        const std::size_t equals = item.find('=');
        if (equals == 0 || equals == std::string_view::npos || equals + 2 != item.size()) {
            return false;
        }
        const char digit = item.back();
        if (digit < '0' || digit > '9') { return false; }
        parsed.emplace_back(std::string{item.substr(0, equals)}, digit - '0');
    }
    for (const auto& [name, level] : parsed) { registry().levelIs(name, level); }
    return !parsed.empty();
}

void Arguments::put(std::string_view text) {
    const std::size_t used = size_ + 1 + sizeof(std::uint16_t);
    const std::size_t room = used < kCapacity ? kCapacity - used : 0;
    const auto length = static_cast<std::uint16_t>(text.size() < room ? text.size() : room);
    raw('s', length);
    if (cut_ || length == 0) { return; }
    std::memcpy(bytes_.data() + size_, text.data(), length);
    size_ += length;
}

void write(CallSite& site, const Handle& handle, const Arguments& arguments) {
    if (RingWriter* ring = RingWriter::current()) { ring->write(site, handle, arguments); }
    if (handle.level() >= site.level) { writeText(site, handle, arguments); }
}

std::string formatMessage(std::string_view format, const std::byte* arguments, std::size_t size) {
    Buffer text;
    appendMessage(text, format, arguments, size);
    return {text.data(), text.size()};
}

}  // namespace Blink
