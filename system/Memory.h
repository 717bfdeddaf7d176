#pragma once

#include <cstddef>
#include <new>

namespace sys {

/// Hands memory that was freed but kept by the C library back to the system. Takes milliseconds; for use after work
/// that needed much memory for a short time. Does nothing where the C library has no such call. Safe from any thread.
void releaseFreeMemory();

/// Memory for a table that is read all over the place: on large pages where the system has them, so that a processor
/// finds its addresses without walking page tables. Throws std::bad_alloc. Safe from any thread.
void* allocateTable(std::size_t bytes);
/// Gives back what allocateTable gave.
void freeTable(void* table, std::size_t bytes) noexcept;

/// allocateTable for containers.
template <class Element>
struct TableAllocator {
    using value_type = Element;

    TableAllocator() = default;
    template <class Other>
    TableAllocator(const TableAllocator<Other>& /*other*/) noexcept {}

    Element* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(Element)) {
            throw std::bad_array_new_length();
        }
        return static_cast<Element*>(allocateTable(count * sizeof(Element)));
    }
    void deallocate(Element* table, std::size_t count) noexcept { freeTable(table, count * sizeof(Element)); }

    friend bool operator==(const TableAllocator& /*a*/, const TableAllocator& /*b*/) { return true; }
    friend bool operator!=(const TableAllocator& /*a*/, const TableAllocator& /*b*/) { return false; }
};

}  // namespace sys
