#include "forwarder/Scenario/GeneratorOptions.h"

#include <charconv>
#include <limits>
#include <vector>

#include "forwarder/Scenario/Problems.h"

namespace Pel::Forwarder {

namespace {

struct Field {
    std::string_view name;
    std::uint64_t GeneratorOptions::*value;
    std::uint64_t max;
};

const std::vector<Field>& fields() {
    static const std::vector<Field> known = {
        {"next-hops", &GeneratorOptions::nextHops, GeneratorOptions::kMaxElements},
        {"groups", &GeneratorOptions::groups, GeneratorOptions::kMaxElements},
        {"routes", &GeneratorOptions::routes, GeneratorOptions::kMaxElements},
        {"churn", &GeneratorOptions::churn, GeneratorOptions::kMaxChurn},
        {"counters", &GeneratorOptions::counters, GeneratorOptions::kMaxRate},
        {"counter-changes", &GeneratorOptions::counterChanges, GeneratorOptions::kMaxChurn},
        {"chains", &GeneratorOptions::chains, GeneratorOptions::kMaxElements},
        {"seed", &GeneratorOptions::seed, std::numeric_limits<std::uint64_t>::max()}};
    return known;
}

/// "" or why `word` cannot be taken.
std::string take(std::string_view word, GeneratorOptions& to) {
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string_view name = word.substr(0, equals);
    std::string_view value = word.substr(std::min(equals + 1, word.size()));
    std::vector<std::string_view> names;
    for (const Field& field : fields()) {
        names.push_back(field.name);
        if (field.name != name) { continue; }
        const bool rate = name == "churn" || name == "counters" || name == "counter-changes";
        if (rate && value.ends_with("/s")) { value.remove_suffix(2); }
        std::uint64_t number = 0;
        const char* const end = value.data() + value.size();
        const auto [last, error] = std::from_chars(value.data(), end, number);
        if (error != std::errc{} || last != end || number > field.max) {
            return "expected " + std::string{name} + "= and a whole number from 0 to " +
                   std::to_string(field.max) + ", not " + inQuotes(word);
        }
        to.*field.value = number;
        return {};
    }
    const std::string_view meant = nearest(name, names);
    return "unknown word " + inQuotes(word) +
           (meant.empty() ? std::string{} : "; did you mean " + inQuotes(meant) + "?");
}

}  // namespace

std::optional<GeneratorOptions> GeneratorOptions::parse(std::string_view text, std::string& error) {
    GeneratorOptions options;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find_first_of(" ,"));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        error = word.empty() ? std::string{} : take(word, options);
        if (!error.empty()) { return std::nullopt; }
    }
    if (options.groups > 0 && options.nextHops == 0) {
        error = "groups need next-hops";
    } else if (options.routes > 0 && options.groups == 0) {
        error = "routes need groups";
    } else if (options.churn > 0 && options.nextHops == 0) {
        error = "churn needs next-hops";
    } else if (options.counters > 0 && options.groups == 0) {
        error = "counters need groups";
    } else if (options.counterChanges > 0 && options.counters == 0) {
        error = "counter-changes need counters";
    }
    return error.empty() ? std::optional{options} : std::nullopt;
}

}  // namespace Pel::Forwarder
