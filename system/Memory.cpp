#include "system/Memory.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#ifdef __linux__
#include <sys/mman.h>
#endif

#include <new>

namespace sys {
namespace {

/// The large pages of x86-64 and of most other systems; where they have another size, only this alignment is in vain.
constexpr std::size_t kLargePageBytes = std::size_t{1} << 21U;

/// A table of less than a few large pages is within the reach of small ones.
bool isLarge(std::size_t bytes) {
    return bytes >= 2 * kLargePageBytes;
}

}  // namespace

void releaseFreeMemory() {
#if defined(__GLIBC__)
    ::malloc_trim(0);
#endif
}

void* allocateTable(std::size_t bytes) {
    if (!isLarge(bytes)) {
        return ::operator new(bytes);
    }
    void* const table = ::operator new(bytes, std::align_val_t(kLargePageBytes));
#ifdef MADV_HUGEPAGE
    // Of whole large pages only: what follows the table on its last one is not ours. Refusal does no harm.
    ::madvise(table, bytes / kLargePageBytes * kLargePageBytes, MADV_HUGEPAGE);
#endif
    return table;
}

void freeTable(void* table, std::size_t bytes) noexcept {
    if (isLarge(bytes)) {
        ::operator delete(table, std::align_val_t(kLargePageBytes));
    } else {
        ::operator delete(table);
    }
}

}  // namespace sys
