#pragma once

#include "platform/Gale/PathPattern.h"

#include <string>
#include <string_view>
#include <vector>

namespace Gale {

/// Cuts the Notification of one entry down to the leaves that somebody asked for. It stays what it
/// was otherwise: an atomic one is then all that the subscriber sees of the entry.
class LeafFilter final {
public:
    /// `patterns` outlive the filter.
    explicit LeafFilter(const std::vector<PathPattern>& patterns) : patterns_(patterns) {}

    /// Appends what is left to `to`; false, with nothing appended, when no leaf is.
    bool cut(std::string_view notification, std::string& to);
    /// Appends a Notification that deletes the entry, with the stamp of the one given.
    static void makeDelete(std::string_view notification, std::string& to);

private:
    using States = std::vector<PathPattern::State>;
    void walk(std::string_view path, States& states) const;
    bool covered(const States& states) const;

    const std::vector<PathPattern>& patterns_;
    States atPrefix_;
    States atLeaf_;
};

}  // namespace Gale
