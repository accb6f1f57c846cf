#pragma once

#include <exception>
#include <utility>

namespace Store {

/// Lets a loop go on when one of its steps throws; the first exception is thrown on at the end.
class FirstError {
public:
    template <class Step>
    void run(Step&& step) {
        try {
            std::forward<Step>(step)();
        } catch (...) {
            if (!first_) { first_ = std::current_exception(); }
        }
    }
    void rethrow() const {
        if (first_) { std::rethrow_exception(first_); }
    }

private:
    std::exception_ptr first_;
};

}  // namespace Store
