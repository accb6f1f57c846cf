#include "forwarder/Scenario/Problems.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <numeric>

namespace Pel::Forwarder {

namespace {

constexpr std::size_t kMaxQuoted = 60;
constexpr std::size_t kMaxCompared = 40;

bool isControl(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
}

/// Letters to insert, remove or replace, whatever their case.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i])) ==
                              std::tolower(static_cast<unsigned char>(b[j]));
            const std::size_t replaced = diagonal + (same ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

void Problems::add(Place place, std::string text) {
    std::replace_if(text.begin(), text.end(), isControl, '?');  // they would drive the terminal
    if (kept_.size() < kMaxKept) {
        kept_.emplace(place, std::move(text));
    } else if (!kept_.contains({place, text})) {
        ++leftOut_;
    }
}

std::vector<std::string> Problems::lines() const {
    std::vector<std::string> lines;
    for (const auto& [place, text] : kept_) {
        lines.push_back(place.line > 0
                            ? fmt::format("{}:{}:{}: {}", file_, place.line, place.column, text)
                            : fmt::format("{}: {}", file_, text));
    }
    if (leftOut_ > 0) {
        lines.push_back(file_ + ": and " + std::to_string(leftOut_) + " more problems");
    }
    return lines;
}

std::string inQuotes(std::string_view text) {
    std::string result = "'";
    for (const char c : text.substr(0, kMaxQuoted)) { result += isControl(c) ? '?' : c; }
    return result + (text.size() > kMaxQuoted ? "...'" : "'");
}

std::string_view nearest(std::string_view word, const std::vector<std::string_view>& candidates) {
    if (word.size() > kMaxCompared) { return {}; }
    std::string_view best;
    std::size_t bestDistance = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string_view candidate : candidates) {
        const std::size_t d = distance(word, candidate);
        if (d < bestDistance && d < candidate.size()) {
            best = candidate;
            bestDistance = d;
        }
    }
    return best;
}

}  // namespace Pel::Forwarder
