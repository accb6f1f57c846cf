#include "test/checker/Finding.h"

#include <fmt/format.h>

namespace Checker {

std::string_view ruleName(Rule rule) {
    switch (rule) {
        case Rule::responseKind:
            return "response-kind";
        case Rule::stampMissing:
            return "stamp-missing";
        case Rule::origin:
            return "origin";
        case Rule::prefixNotEntry:
            return "prefix-not-entry";
        case Rule::notAtomic:
            return "not-atomic";
        case Rule::atomicDelete:
            return "atomic-delete";
        case Rule::mixed:
            return "mixed";
        case Rule::emptyNotification:
            return "empty-notification";
        case Rule::deleteNotAtEntry:
            return "delete-not-at-entry";
        case Rule::deleteAbsent:
            return "delete-absent";
        case Rule::deleteStamp:
            return "delete-stamp";
        case Rule::stampBackwards:
            return "stamp-backwards";
        case Rule::staleUpdate:
            return "stale-update";
        case Rule::repeated:
            return "repeated";
        case Rule::initialDuplicate:
            return "initial-duplicate";
        case Rule::keyLeaf:
            return "key-leaf";
        case Rule::leafSet:
            return "leaf-set";
        case Rule::leafType:
            return "leaf-type";
        case Rule::leafTwice:
            return "leaf-twice";
        case Rule::danglingNextHop:
            return "dangling-next-hop";
        case Rule::danglingGroup:
            return "dangling-group";
        case Rule::noSync:
            return "no-sync";
        case Rule::secondSync:
            return "second-sync";
        case Rule::onceTail:
            return "once-tail";
        case Rule::lostEntry:
            return "lost-entry";
        case Rule::staleEntry:
            return "stale-entry";
        case Rule::contentDiffers:
            return "content-differs";
        case Rule::summaryCount:
            return "summary-count";
        case Rule::flagEarly:
            return "flag-early";
        case Rule::flagMissing:
            return "flag-missing";
    }
    return "?";
}

std::string Finding::line() const {
    const std::string where = message == 0 ? "end state" : fmt::format("message {}", message);
    return fmt::format(
        "{}: {}: {}{}{}", where, ruleName(rule), entry, entry.empty() ? "" : ": ", text);
}

}  // namespace Checker
