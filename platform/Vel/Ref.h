#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "platform/Vel/Assert.h"

namespace Vel {

/// Asserts that the caller is on the thread that first asked: entities belong to the scheduler's.
void assertEntityThread();
/// Lets go of that thread, so that another may own the entities from now on (a test that runs an
/// agent on a thread of its own).
void releaseEntityThread();

template <class T>
class Ref;
template <class T>
Ref<T> keepAlive(T* object);

/// Base of what is shared by counted reference. The count is a plain integer: all references belong
/// to the scheduler's thread; what crosses to another thread is bytes, never one of these.
class RefCounted {
public:
    RefCounted() = default;
    RefCounted(const RefCounted&) = delete;
    RefCounted& operator=(const RefCounted&) = delete;
    virtual ~RefCounted() = default;

private:
    template <class T>
    friend class Ref;
    template <class T>
    friend Ref<T> keepAlive(T* object);
    static constexpr std::uint32_t kDying = 1U << 31;

    /// Not so in the constructor, on a stack, and in the destructor.
    bool owned() const { return references_ > 0 && references_ < kDying; }
    void refInc() const { ++references_; }
    void refDec() const {
        VEL_ASSERT(references_ > 0);
        if (--references_ == 0) {
            references_ = kDying;  // what the destructor calls may take and drop references again
            delete this;
        }
    }
    mutable std::uint32_t references_ = 0;
};

/// Counted reference to a RefCounted; may be null. Ref<T> converts to Ref<const T> and to bases.
template <class T>
class Ref {
public:
    Ref() = default;
    Ref(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): null reads as itself
    explicit Ref(T* object) : object_{object} { inc(); }
    Ref(const Ref& other) : object_{other.object_} { inc(); }
    Ref(Ref&& other) noexcept : object_{std::exchange(other.object_, nullptr)} {}
    template <class U>
    requires std::is_convertible_v<U*, T*>
    // NOLINTNEXTLINE(google-explicit-constructor): a reference converts as its pointer does
    Ref(const Ref<U>& other) : object_{other.get()} {
        inc();
    }
    ~Ref() { dec(); }
    Ref& operator=(Ref other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const { return object_; }
    T& operator*() const {
        VEL_ASSERT(object_ != nullptr);
        return *object_;
    }
    T* operator->() const {
        VEL_ASSERT(object_ != nullptr);
        return object_;
    }
    /// Whether this is the only reference to the object.
    bool unique() const { return object_ != nullptr && object_->references_ == 1; }
    explicit operator bool() const { return object_ != nullptr; }
    friend bool operator==(const Ref& a, const Ref& b) { return a.object_ == b.object_; }
    friend bool operator==(const Ref& a, std::nullptr_t) { return a.object_ == nullptr; }

private:
    void inc() const {
        if (object_ != nullptr) { object_->refInc(); }
    }
    void dec() const {
        if (object_ != nullptr) { object_->refDec(); }
    }
    T* object_ = nullptr;
};

template <class T, class... Args>
Ref<T> make(Args&&... args) {
    return Ref<T>{new T(std::forward<Args>(args)...)};
}

/// A reference for the time of a call that may release the object. Null when no reference owns it
/// (it is being constructed or destroyed, or stands on a stack): then nobody can release it, and
/// the last reference must not delete it.
template <class T>
Ref<T> keepAlive(T* object) {
    const RefCounted* const counted = object;
    return counted != nullptr && counted->owned() ? Ref<T>{object} : Ref<T>{};
}

/// The reference as another type, or null when the object is not of it.
template <class To, class From>
Ref<To> refCast(const Ref<From>& from) {
    return Ref<To>{dynamic_cast<To*>(from.get())};
}

}  // namespace Vel
