#pragma once

#include "platform/Export.h"

namespace utils {

/// One process-wide instance of T, made on first use and never destroyed, so that threads which outlive main() may
/// still use it. Making it is safe from any thread. The libraries keep one instance between them: a T that crosses
/// library boundaries is instantiated where T is defined.
template <class T>
class PM_PLATFORM_API CSingletonT {
public:
    /// Never null; valid until the process ends.
    static T* instance();
};

// Not within the class: what is inline there, compilers for Windows may leave out of the library that instantiates it.
template <class T>
T* CSingletonT<T>::instance() {
    static T* const object = new T;
    return object;
}

}  // namespace utils
