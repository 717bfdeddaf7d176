#pragma once

#include <cassert>
#include <shared_mutex>

#include "system/ThreadObject.h"

namespace mxservice {

#ifdef NDEBUG
inline void noteLockTaken() {}
inline void noteLockReleased() {}
inline void assertNoLockHeld() {}
#else
/// Locks of the center that the calling thread holds. No operation holds two at once, and none holds one while it
/// calls the store.
struct HeldLocks {
    int count = 0;
};
inline void assertNoLockHeld() {
    assert(sys::ofThread<HeldLocks>().count == 0 && "a lock of the center is held");
}
inline void noteLockTaken() {
    assertNoLockHeld();
    ++sys::ofThread<HeldLocks>().count;
}
inline void noteLockReleased() {
    --sys::ofThread<HeldLocks>().count;
}
#endif

/// A value and the lock that guards it. The value is reachable only through a proxy that holds the lock for the
/// proxy's life: read() shared and const, write() exclusive. For what no lookup asks: a lookup waits for nobody.
template <class Value>
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

    ReadProxy read() const { return ReadProxy(*this); }
    WriteProxy write() { return WriteProxy(*this); }

private:
    mutable std::shared_mutex lock_;
    Value value_;
};

}  // namespace mxservice
