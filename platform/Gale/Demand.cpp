#include "platform/Gale/Demand.h"

#include "platform/Vel/Assert.h"

#include <algorithm>
#include <utility>

namespace Gale {

Demand::~Demand() {
    VEL_ASSERT(tokens_.empty());
}

void Demand::lazyIs(Tell tell) {
    VEL_ASSERT(tokens_.empty());
    tell_ = std::move(tell);
    filled_ = false;
}

void Demand::filledIs(std::uint64_t round) {
    if (round != round_ || tokens_.empty()) { return; }
    filled_ = true;
    // What is told may end calls.
    const std::vector<Token*> waiting = tokens_;
    for (Token* const token : waiting) {
        const bool there = std::find(tokens_.begin(), tokens_.end(), token) != tokens_.end();
        if (there) { token->onFilled_(); }
    }
}

Demand::Token::Token(Demand& demand, std::function<void()> onFilled)
    : demand_(demand), onFilled_(std::move(onFilled)) {
    demand_.tokens_.push_back(this);
    if (demand_.tell_ && demand_.tokens_.size() == 1) { demand_.tell_(++demand_.round_, true); }
}

Demand::Token::~Token() {
    std::erase(demand_.tokens_, this);
    if (demand_.tell_ && demand_.tokens_.empty()) {
        demand_.filled_ = false;
        demand_.tell_(demand_.round_, false);
    }
}

}  // namespace Gale
