#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/Vel/Sm.h"

namespace Vel {

namespace Detail {

/// The list that a publisher and its subscriptions share, so that either may die first.
class SubscriberList {
public:
    SubscriberList() = default;
    SubscriberList(const SubscriberList&) = delete;
    SubscriberList& operator=(const SubscriberList&) = delete;
    virtual ~SubscriberList() = default;
    virtual void remove(std::uint64_t id) = 0;
};

}  // namespace Detail

/// The right to be told. Unsubscribes when it dies; after that no call comes any more, not even
/// when the publication under way has not reached this subscriber yet. May outlive the publisher.
class [[nodiscard]] Subscription {
public:
    Subscription() = default;
    Subscription(std::weak_ptr<Detail::SubscriberList> list, std::uint64_t id)
        : list_{std::move(list)}, id_{id} {}
    Subscription(Subscription&& other) noexcept
        : list_{std::move(other.list_)}, id_{std::exchange(other.id_, 0)} {
        other.list_.reset();
    }
    Subscription& operator=(Subscription&& other) noexcept {
        if (this != &other) {
            reset();
            list_ = std::move(other.list_);
            id_ = std::exchange(other.id_, 0);
            other.list_.reset();
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (const auto list = list_.lock()) { list->remove(id_); }
        list_.reset();
    }

private:
    std::weak_ptr<Detail::SubscriberList> list_;
    std::uint64_t id_ = 0;
};

/// Tells subscribers, synchronously and in the order of their registration.
///
/// - A change made inside a reaction is published at once, nested.
/// - Who subscribes inside a reaction is not told of the publication under way.
/// - A reaction may drop its own or any other subscription, and the publisher.
/// - A machine's reaction is skipped while its notifications are off, and the machine is kept alive
///   while its reaction runs, so that it may be released inside it. A machine that still is being
///   constructed is told as any other.
/// - What a reaction throws does not keep the others from running; the first exception is thrown to
///   the publisher's caller afterwards.
template <class... Args>
class Publisher {
public:
    Publisher() = default;
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;
    ~Publisher() = default;

    Subscription subscribe(std::function<void(Args...)> reaction) {
        return list().add(nullptr, std::move(reaction));
    }
    /// Calls a handler of a machine.
    template <class Machine, class... Parameters>
    Subscription subscribe(Machine* machine, void (Machine::*handler)(Parameters...)) {
        return list().add(machine,
                          [machine, handler](Args... args) { (machine->*handler)(args...); });
    }
    template <class Reaction>
    Subscription subscribeAs(Sm* machine, Reaction reaction) {
        return list().add(machine, std::move(reaction));
    }

    void publish(Args... args) const {
        if (list_ != nullptr && !list_->empty()) {
            const std::shared_ptr<List> keep = list_;
            keep->publish(args...);
        }
    }
    bool hasSubscribers() const { return list_ != nullptr && !list_->empty(); }

private:
    class List final : public Detail::SubscriberList, public std::enable_shared_from_this<List> {
    public:
        Subscription add(Sm* machine, std::function<void(Args...)> reaction) {
            entries_.emplace_back(++lastId_, machine, std::move(reaction));
            ++live_;
            return Subscription{this->weak_from_this(), lastId_};
        }
        void remove(std::uint64_t id) override {
            for (Entry& entry : entries_) {
                if (entry.id == id) {
                    entry.id = 0;
                    entry.machine = nullptr;
                    --live_;
                    sweep();
                    return;
                }
            }
        }
        bool empty() const { return live_ == 0; }
        void publish(Args... args) {
            std::exception_ptr first;
            ++depth_;
            const std::size_t count = entries_.size();
            for (std::size_t i = 0; i < count; ++i) {
                if (entries_[i].id == 0) { continue; }
                Sm* const machine = entries_[i].machine;
                if (machine != nullptr && !machine->hasNotificationActive()) { continue; }
                const Ref<Sm> keep = keepAlive(machine);
                // A reaction that subscribes moves the vector; the copy's target stays.
                const std::shared_ptr<std::function<void(Args...)>> reaction = entries_[i].reaction;
                try {
                    (*reaction)(args...);
                } catch (...) {
                    if (!first) { first = std::current_exception(); }
                }
            }
            --depth_;
            sweep();
            if (first) { std::rethrow_exception(first); }
        }

    private:
        struct Entry {
            Entry(std::uint64_t entryId, Sm* entryMachine, std::function<void(Args...)> fn)
                : id{entryId},
                  machine{entryMachine},
                  reaction{std::make_shared<std::function<void(Args...)>>(std::move(fn))} {}
            std::uint64_t id;  // 0: unsubscribed, swept when no publication is under way
            Sm* machine;
            std::shared_ptr<std::function<void(Args...)>> reaction;
        };
        void sweep() {
            if (depth_ > 0 || live_ == entries_.size()) { return; }
            // The dead are destroyed last: what a reaction holds may be a subscriber of this list.
            std::vector<Entry> dead;
            std::size_t kept = 0;
            for (Entry& entry : entries_) {
                if (entry.id == 0) {
                    dead.push_back(std::move(entry));
                } else if (&entries_[kept++] != &entry) {
                    entries_[kept - 1] = std::move(entry);
                }
            }
            entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(kept), entries_.end());
        }
        std::vector<Entry> entries_;
        std::uint64_t lastId_ = 0;
        std::size_t live_ = 0;
        int depth_ = 0;
    };

    List& list() {
        if (list_ == nullptr) { list_ = std::make_shared<List>(); }
        return *list_;
    }
    std::shared_ptr<List> list_;
};

}  // namespace Vel
