#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace Gale {

/// Which calls need a channel's entries, and whether these are all there. Those of an eager channel
/// always are. Those of a lazy one are made while there is a token: LazyFill is told that a round of
/// demand has begun or is over, and answers with filled(). I/O thread, but for lazyIs().
class Demand final {
public:
    /// A round has begun (true) or is over (false).
    using Tell = std::function<void(std::uint64_t round, bool wanted)>;

    /// Held by a call while it needs the entries: it may have a cursor from filled() on, and drops
    /// that before the token.
    class [[nodiscard]] Token final {
    public:
        /// `onFilled`: the entries that were not there yet are. Not called from the constructor.
        Token(Demand& demand, std::function<void()> onFilled);
        ~Token();
        Token(const Token&) = delete;
        Token& operator=(const Token&) = delete;

        bool filled() const { return demand_.filled_; }

    private:
        friend class Demand;

        Demand& demand_;
        const std::function<void()> onFilled_;
    };

    Demand() = default;
    ~Demand();  // every token has gone before
    Demand(const Demand&) = delete;
    Demand& operator=(const Demand&) = delete;

    /// From now on there are entries only on demand. Before the first token; any thread.
    void lazyIs(Tell tell);
    /// The entries are there. An answer to a round that is over by now means nothing.
    void filledIs(std::uint64_t round);

private:
    Tell tell_;  // empty: eager
    std::vector<Token*> tokens_;
    std::uint64_t round_ = 0;
    bool filled_ = true;
};

}  // namespace Gale
