#pragma once

#include <cassert>
#include <type_traits>
#include <utility>

#include "system/SharedMutex.h"

namespace mxservice {

/// The lock of every table; named here alone.
using SharedMutex = sys::SharedMutex;
/// The lock of tables that lookups themselves change.
using EvenSharedMutex = sys::EvenSharedMutex;

#ifdef NDEBUG
inline void noteLockTaken() {}
inline void noteLockReleased() {}
inline void assertNoLockHeld() {}
#else
/// Locks of the center that the calling thread holds. No operation holds two at once, and none holds one while it
/// calls the store.
inline thread_local int heldLocks = 0;
inline void assertNoLockHeld() {
    assert(heldLocks == 0 && "a lock of the center is held");
}
inline void noteLockTaken() {
    assertNoLockHeld();
    ++heldLocks;
}
inline void noteLockReleased() {
    --heldLocks;
}
#endif

/// A value and the lock that guards it. The value is reachable only through a proxy that holds the lock for the
/// proxy's life: read() shared and const, write() exclusive.
template <class Value, class Mutex = SharedMutex>
class Guarded {
public:
    class ReadProxy {
    public:
        explicit ReadProxy(const Guarded& owner) : owner_(owner) {
            noteLockTaken();
            owner_.lock_.lock_shared();
        }
        ~ReadProxy() {
            owner_.lock_.unlock_shared();
            noteLockReleased();
        }
        ReadProxy(const ReadProxy&) = delete;
        ReadProxy& operator=(const ReadProxy&) = delete;
        const Value& operator*() const { return owner_.value_; }
        const Value* operator->() const { return &owner_.value_; }

    private:
        const Guarded& owner_;
    };

    class WriteProxy {
    public:
        explicit WriteProxy(Guarded& owner) : owner_(owner) {
            noteLockTaken();
            owner_.lock_.lock();
        }
        ~WriteProxy() {
            owner_.lock_.unlock();
            noteLockReleased();
        }
        WriteProxy(const WriteProxy&) = delete;
        WriteProxy& operator=(const WriteProxy&) = delete;
        Value& operator*() const { return owner_.value_; }
        Value* operator->() const { return &owner_.value_; }

    private:
        Guarded& owner_;
    };

    Guarded() = default;
    explicit Guarded(Value value) : value_(std::move(value)) {}

    ReadProxy read() const { return ReadProxy(*this); }
    WriteProxy write() { return WriteProxy(*this); }

    /// A copy of the whole value.
    Value copy() const { return *read(); }

    /// What `ask` answers when it is given the value, for the shortest of reads: no call to another function stands on
    /// the common way, so that a lookup costs little more than without a lock.
    template <class Ask>
    auto answer(Ask ask) const {
        static_assert(std::is_nothrow_invocable_v<Ask, const Value&>, "nothing would give the lock back");
        if (typename Mutex::Inside* const inside = lock_.tryEnter()) [[likely]] {
            noteLockTaken();
            auto result = ask(value_);
            Mutex::leave(inside);
            noteLockReleased();
            return result;
        }
        return answerSlowly(ask);
    }

private:
    template <class Ask>
    [[gnu::noinline, gnu::cold]] auto answerSlowly(Ask ask) const {
        const ReadProxy proxy(*this);
        return ask(*proxy);
    }

    mutable Mutex lock_;
    Value value_;
};

/// Puts `value` in and hands back what was there, so that the caller destroys it with the lock dropped.
template <class Value>
Value exchange(Guarded<Value>& guarded, Value value) {
    std::swap(*guarded.write(), value);
    return value;
}

}  // namespace mxservice
