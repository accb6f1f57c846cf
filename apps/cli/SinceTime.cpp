#include "apps/cli/SinceTime.h"

#include <charconv>
#include <ctime>
#include <string>
#include <system_error>

namespace Pel::Cli {
namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;
constexpr std::int64_t kLongest = 3650LL * 24 * 3600;  // seconds

/// The digits the text begins with, which are taken off it. Nullopt without any.
std::optional<std::int64_t> takeNumber(std::string_view& text) {
    std::uint32_t number = 0;
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem != std::errc{}) { return std::nullopt; }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

std::int64_t secondsOf(std::string_view unit) {
    if (unit == "s") { return 1; }
    if (unit == "m") { return 60; }
    if (unit == "h") { return 3600; }
    return unit == "d" ? 24 * 3600 : 0;
}

/// ".25" as nanoseconds.
std::optional<std::int64_t> fraction(std::string_view text) {
    if (text.empty()) { return 0; }
    if (text.front() != '.' || text.size() < 2 || text.size() > 10) { return std::nullopt; }
    const std::size_t digits = text.size() - 1;
    text.remove_prefix(1);
    auto number = takeNumber(text);
    if (!number || !text.empty()) { return std::nullopt; }
    for (std::size_t i = digits; i < 9; ++i) { *number *= 10; }
    return number;
}

}  // namespace

std::optional<std::chrono::seconds> timeSpan(std::string_view text) {
    const auto number = takeNumber(text);
    const std::int64_t unit = number ? secondsOf(text) : 0;
    if (unit == 0 || *number > kLongest / unit) { return std::nullopt; }
    return std::chrono::seconds{*number * unit};
}

std::optional<std::int64_t> sinceTime(std::string_view text,
                                      std::chrono::system_clock::time_point now) {
    if (const auto age = timeSpan(text)) {
        return std::chrono::nanoseconds{now.time_since_epoch()}.count() -
               age->count() * kNanoseconds;
    }
    std::tm parts{};
    const std::string whole{text};
    const char* const end = ::strptime(whole.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (end == nullptr || parts.tm_year > 300) { return std::nullopt; }
    std::string_view rest = end;
    if (rest.ends_with('Z')) { rest.remove_suffix(1); }
    const auto nanoseconds = fraction(rest);
    if (!nanoseconds) { return std::nullopt; }
    return std::int64_t{::timegm(&parts)} * kNanoseconds + *nanoseconds;
}

}  // namespace Pel::Cli
