#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include "system/ThreadObject.h"

namespace sys {

ThreadSlot::ThreadSlot(void (*destroy)(void*)) : slot_(::FlsAlloc(destroy)) {}

void* ThreadSlot::get() const {
    return ::FlsGetValue(slot_);
}

void ThreadSlot::set(void* object) const {
    ::FlsSetValue(slot_, object);
}

}  // namespace sys
