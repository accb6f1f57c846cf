#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Checker {

/// What a stream of the AFT view must keep to. README.md has a sentence on each.
enum class Rule : std::uint8_t {
    responseKind,
    stampMissing,
    origin,
    prefixNotEntry,
    notAtomic,
    atomicDelete,
    mixed,
    emptyNotification,
    deleteNotAtEntry,
    deleteAbsent,
    deleteStamp,
    stampBackwards,
    staleUpdate,
    repeated,
    initialDuplicate,
    keyLeaf,
    leafSet,
    leafType,
    leafTwice,
    danglingNextHop,
    danglingGroup,
    noSync,
    secondSync,
    onceTail,
    lostEntry,
    staleEntry,
    contentDiffers,
    summaryCount,
    flagEarly,
    flagMissing,
};

/// As findings print it: "delete-stamp".
std::string_view ruleName(Rule rule);

struct Finding {
    Rule rule = Rule::responseKind;
    std::uint64_t message = 0;  ///< its number in the recording, from 1; 0: about the end state
    std::string entry;          ///< path; empty when it is about no entry
    std::string text;

    std::string line() const;
};

}  // namespace Checker
