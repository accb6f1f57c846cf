#pragma once

#include <array>
#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

/// Tracing. A trace call names a level, a format string with "{}" placeholders and its arguments,
/// and goes to two sinks: always to the binary ring file (if one is open), and as a line of text to
/// standard error when the level is enabled for the handle of the source file.
///
///     BLINK_TRACE_HANDLE("PelNexthopMapperSm");          // once per source file
///     TRACE9("nhId {}", nhId);                           // 5 failures, 7 data, 9 entry
///
/// A call copies raw arguments into a fixed-size slot; the reader of the ring formats. It allocates
/// nothing and takes no lock, but for the first call of each call site. The arguments are not even
/// evaluated while no sink wants the message. Any thread may trace and set levels at any time.
namespace Blink {

/// The knob of one source file (or of a few that belong together), known by name.
class Handle {
public:
    explicit Handle(std::string name) : name_{std::move(name)} {}
    const std::string& name() const { return name_; }
    /// Text is written for messages whose level is at most this; 0 is off.
    int level() const { return level_.load(std::memory_order_relaxed); }
    void levelIs(int level) { level_.store(level, std::memory_order_relaxed); }

private:
    std::string name_;
    std::atomic<int> level_{0};
};

/// The handle of that name, made on first use; lives for ever. A level set before (levelsIs) holds.
Handle& handle(std::string_view name);

/// Sets text levels (one digit) from "Name=9,Other=5"; "*" stands for all handles, present and
/// future.
/// Answers false, and changes nothing, when the text is malformed.
bool levelsIs(std::string_view spec);

/// One trace call in the source. Registered in the ring file when it first runs.
struct CallSite {
    int level;
    const char* format;
    const char* file;
    const char* function;
    int line;
    std::atomic<std::uint32_t> id{0};  // 0: not yet in the current ring file
};

/// Number of "{}" placeholders of a format string; "{{" and "}}" are literal braces. Placeholders
/// take no width or other option: anything else after a brace does not compile.
consteval std::size_t placeholders(std::string_view format) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        const char next = i + 1 < format.size() ? format[i + 1] : '\0';
        if (format[i] == '{') {
            if (next != '{' && next != '}') { throw "a placeholder is {}, a brace is {{"; }
            if (next == '}') { ++count; }
            ++i;
        } else if (format[i] == '}') {
            if (next != '}') { throw "a closing brace is }}"; }
            ++i;
        }
    }
    return count;
}

/// The arguments of one call as bytes: a type letter and the raw value each. What comes after an
/// argument that did not fit is left out, so that no value moves to another's place.
class Arguments {
public:
    static constexpr std::size_t kCapacity = 464;

    void put(bool value) { raw('b', static_cast<std::uint8_t>(value)); }
    void put(double value) { raw('d', value); }
    template <std::integral T>
    void put(T value) {
        if constexpr (std::is_signed_v<T>) {
            raw('i', static_cast<std::int64_t>(value));
        } else {
            raw('u', static_cast<std::uint64_t>(value));
        }
    }
    void put(std::string_view text);  ///< cut at what is left of the slot
    void put(const char* text) { put(std::string_view{text == nullptr ? "(null)" : text}); }
    void put(const std::string& text) { put(std::string_view{text}); }
    /// Strong ids show their number, other types of the model their string form.
    template <class T>
    requires requires(const T& t) {
        t.value();
    } &&(!requires(const T& t) { t.stringValue(); }) void put(const T& value) {
        put(value.value());
    }
    template <class T>
    requires requires(const T& t) { t.stringValue(); }
    void put(const T& value) { put(std::string_view{value.stringValue()}); }

    const std::byte* data() const { return bytes_.data(); }
    std::size_t size() const { return size_; }

private:
    template <class T>
    void raw(char type, T value) {
        if (cut_ || size_ + 1 + sizeof value > kCapacity) {
            cut_ = true;
            return;
        }
        bytes_[size_++] = static_cast<std::byte>(type);
        std::memcpy(&bytes_[size_], &value, sizeof value);
        size_ += sizeof value;
    }

    std::size_t size_ = 0;
    bool cut_ = false;
    std::array<std::byte, kCapacity> bytes_;  // not initialised: only size_ bytes mean anything
};

class RingWriter;
namespace Detail {
extern std::atomic<RingWriter*> currentRing;  // set by RingWriter
}

/// True when some sink wants the message. Cheap.
inline bool wanted(const CallSite& site, const Handle& handle) {
    return Detail::currentRing.load(std::memory_order_relaxed) != nullptr ||
           handle.level() >= site.level;
}
void write(CallSite& site, const Handle& handle, const Arguments& arguments);

template <std::size_t Expected, class... Args>
inline void trace(CallSite& site, const Handle& handle, const Args&... args) {
    static_assert(Expected == sizeof...(Args), "one argument per placeholder");
    if (!wanted(site, handle)) { return; }
    Arguments arguments;
    (arguments.put(args), ...);
    write(site, handle, arguments);
}

/// The text of a message from its format string and raw arguments. Whatever the bytes, it does not
/// fail and its size is bounded by theirs; control characters are shown as "\\x1b".
std::string formatMessage(std::string_view format, const std::byte* arguments, std::size_t size);

}  // namespace Blink

#define BLINK_TRACE_HANDLE(name)                                \
    namespace {                                                 \
    ::Blink::Handle& blinkTraceHandle() {                       \
        static ::Blink::Handle& handle = ::Blink::handle(name); \
        return handle;                                          \
    }                                                           \
    }                                                           \
    static_assert(true)

#define BLINK_TRACE(traceLevel, traceHandle, text, ...)                                          \
    do {                                                                                         \
        static constinit ::Blink::CallSite blinkSite{                                            \
            traceLevel, text, __FILE__, static_cast<const char*>(__FUNCTION__), __LINE__, {}};   \
        ::Blink::Handle& blinkHandle = traceHandle;                                              \
        if (::Blink::wanted(blinkSite, blinkHandle)) {                                           \
            ::Blink::trace<::Blink::placeholders(text)>(blinkSite,                               \
                                                        blinkHandle __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                                        \
    } while (false)

/// Recoverable failures.
#define TRACE5(text, ...) BLINK_TRACE(5, blinkTraceHandle(), text __VA_OPT__(, ) __VA_ARGS__)
/// Data.
#define TRACE7(text, ...) BLINK_TRACE(7, blinkTraceHandle(), text __VA_OPT__(, ) __VA_ARGS__)
/// Handler entry and unmet conditions.
#define TRACE9(text, ...) BLINK_TRACE(9, blinkTraceHandle(), text __VA_OPT__(, ) __VA_ARGS__)
