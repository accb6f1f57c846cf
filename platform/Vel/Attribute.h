#pragma once

#include <utility>

#include "platform/Vel/Subscription.h"

namespace Vel {

/// One published value of an entity. The entity wraps it in `<attr>()`, `<attr>Is(value)` and
/// `on<Attr>()`.
template <class T>
class Attribute {
public:
    explicit Attribute(T initial = T{}) : value_{std::move(initial)} {}

    const T& get() const { return value_; }
    /// Stores the value and publishes, if it differs. Answers whether it did.
    bool set(T value) {
        if (value_ == value) { return false; }
        value_ = std::move(value);
        changed_.publish();
        return true;
    }
    /// Stores the value and publishes in all cases: for values that are events.
    void pass(T value) {
        value_ = std::move(value);
        changed_.publish();
    }
    void publish() const { changed_.publish(); }
    /// Tells that the value changed (or was passed); readers read it back.
    Publisher<>& changed() const { return changed_; }

private:
    T value_;
    mutable Publisher<> changed_;
};

}  // namespace Vel
