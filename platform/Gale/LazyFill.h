#pragma once

#include "platform/Gale/Provider.h"
#include "platform/Kiln/TaskScheduler.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace Gale {

class Channel;

/// Keeps a lazy channel's entries in its journal while calls demand them and for a while longer, so
/// that a client that comes again and again does not cause them anew each time.
///
///   input                       handler          output
///   a round of demand begins    handleWanted     provider made; or the I/O thread told at once
///   the provider's first pass   handleFilled     the I/O thread told: cursors may attach
///   the round is over           handleUnwanted   linger timer
///   linger timer                handleLinger     provider dropped, entries erased in slices
///
/// A demand that comes while entries are being erased waits until all are, and then for new ones.
/// Scheduler's thread.
class LazyFill final {
public:
    enum class State : std::uint8_t { empty, filling, filled, erasing };

    struct Options {
        /// `onFilled` goes to the provider.
        std::function<std::unique_ptr<Provider>(std::function<void()> onFilled)> makeProvider;
        /// Runs a function on the I/O thread, or never if that ends first.
        std::function<void(std::function<void()>)> toIoThread;
        Kiln::Duration linger{};
    };

    /// Makes the channel lazy; the channel and the scheduler outlive this object, and the channel
    /// the I/O thread. `group` as for a provider.
    static std::shared_ptr<LazyFill> make(Channel& channel,
                                          Options options,
                                          const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                                          const Vel::Ref<Kiln::TaskGroup>& group);
    LazyFill(Channel& channel,
             Options options,
             const Vel::Ref<Kiln::TaskScheduler>& scheduler,
             const Vel::Ref<Kiln::TaskGroup>& group);  // for make() only
    ~LazyFill();
    LazyFill(const LazyFill&) = delete;
    LazyFill& operator=(const LazyFill&) = delete;

    State state() const { return state_; }
    /// Some call demands the entries.
    bool wanted() const { return wanted_.has_value(); }
    /// For people: "idle", "filling", "filled", "lingering", "being freed".
    const char* text() const;

private:
    void handleWanted(std::uint64_t round);
    void handleFilled();
    void handleUnwanted();
    bool handleLinger();
    void fill();
    void tell();
    bool eraseSome();

    Channel& channel_;
    const Options options_;
    const Vel::Ref<Kiln::TaskScheduler> scheduler_;
    State state_ = State::empty;
    std::optional<std::uint64_t> wanted_;  // the round
    Kiln::Task lingerTask_;
    Kiln::Task eraseTask_;
};

}  // namespace Gale
