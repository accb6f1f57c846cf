#pragma once

#include <compare>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Pel::Forwarder {

/// A place in a text file; counts from 1. Line 0: the file as a whole.
struct Place {
    int line = 0;
    int column = 0;
    auto operator<=>(const Place&) const = default;
};

/// What is wrong with a file. Each problem once; beyond kMaxKept they are only counted.
class Problems {
public:
    static constexpr std::size_t kMaxKept = 100;

    explicit Problems(std::string file) : file_{std::move(file)} {}
    void add(Place place, std::string text);
    bool empty() const { return kept_.empty(); }
    /// How many there are so far, those that were left out included.
    std::size_t count() const { return kept_.size() + leftOut_; }
    /// "file:line:column: text" in the order of the file, and at the end how many were left out.
    std::vector<std::string> lines() const;

private:
    std::string file_;
    std::set<std::pair<Place, std::string>> kept_;
    std::size_t leftOut_ = 0;
};

/// `text` in quotes, cut when it is long, with what is not printable shown as '?'.
std::string inQuotes(std::string_view text);

/// The candidate that `word` probably means; "" when none is near.
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& candidates);

}  // namespace Pel::Forwarder
