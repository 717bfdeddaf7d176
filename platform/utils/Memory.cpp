#include "platform/utils/Memory.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace utils {

void releaseFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

}  // namespace utils
