#pragma once

#include "platform/Gale/EntryFilter.h"
#include "platform/Gale/PathPattern.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/SubscribePlan.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gnmi {
class Subscription;
}

namespace Gale {

class Channel;

/// How the subscriptions of a stream want their updates: on change, by sample, or as the server
/// thinks fit, which is counters by sample and all else on change. Those that want the same are one.
///
/// An entry that one subscription wants on change is told on change, whatever others want besides.
class StreamWishes final {
public:
    explicit StreamWishes(const Limits& limits) : limits_(limits) {}

    /// Takes one subscription, or says what is wrong with it.
    std::optional<Wire::Status> add(const gnmi::Subscription& subscription,
                                    const PathPattern& path);
    /// Sets what a plan owes to the wishes; its channel is set already.
    void applyTo(SubscribePlan& plan) const;

private:
    enum class Mode : std::uint8_t { onChange, sample, serverChooses };
    struct Wish {
        Mode mode = Mode::onChange;
        bool changedOnly = false;
        Kiln::Duration sample{};
        Kiln::Duration heartbeat{};  // 0: none

        // clang-tidy 14 takes the generated comparison with 0 for a null pointer.
        friend auto operator<=>(const Wish&,
                                const Wish&) = default;  // NOLINT(modernize-use-nullptr)
    };
    using Filter = std::shared_ptr<const EntryFilter>;

    std::optional<Wire::Status> read(const gnmi::Subscription& subscription,
                                     const std::string& path,
                                     Wish& to) const;
    std::optional<Wire::Status> readInterval(const char* name,
                                             std::uint64_t nanoseconds,
                                             const std::string& path,
                                             Kiln::Duration& to) const;
    void addResends(const Wish& wish, const Filter& filter, std::vector<Resend>& to) const;

    const Limits& limits_;
    std::map<Wish, std::vector<PathPattern>> wishes_;
};

}  // namespace Gale
