#pragma once

namespace sys {

#ifdef _WIN32
/// A place that each thread has for itself, given to `destroy` when the thread ends, unless it is null then.
class ThreadSlot {
public:
    explicit ThreadSlot(void (*destroy)(void*));
    void* get() const;
    void set(void* object) const;

private:
    const unsigned long slot_;
};
#endif

/// The calling thread's own T, made when it first asks and destroyed when the thread ends. Instead of a thread_local
/// variable where T has a destructor: with GCC on Windows, the memory of such a variable may be gone before it is
/// destroyed. There, making it takes memory, and what asks once it is destroyed makes another, which stays.
template <class T>
T& ofThread() {
#ifdef _WIN32
    static const ThreadSlot slot([](void* object) { delete static_cast<T*>(object); });
    if (void* const object = slot.get()) {
        return *static_cast<T*>(object);
    }
    T* const object = new T;
    slot.set(object);
    return *object;
#else
    static thread_local T object;
    return object;
#endif
}

}  // namespace sys
