#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace sys {

/// Hands memory that was freed but kept by the C library back to the system. Takes milliseconds; for use after work
/// that needed much memory for a short time. Does nothing where the C library has no such call. Safe from any thread.
void releaseFreeMemory();

/// Memory for a table that is read all over the place: on large pages where the system has them, so that a processor
/// finds its addresses without walking page tables. Throws std::bad_alloc. Safe from any thread.
void* allocateTable(std::size_t bytes);
/// Gives back what allocateTable gave.
void freeTable(void* table, std::size_t bytes) noexcept;

/// allocateTable for containers. Each allocator counts what its container has of it. Memory may be given back through
/// any other one, so all are equal; only the count is a container's own: it goes with a table that is moved or swapped,
/// and begins anew for a copy.
template <class Element>
class TableAllocator {
public:
    using value_type = Element;
    using is_always_equal = std::true_type;
    using propagate_on_container_move_assignment = std::true_type;
    using propagate_on_container_swap = std::true_type;

    TableAllocator() = default;
    TableAllocator(const TableAllocator&) = default;
    TableAllocator(TableAllocator&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}
    template <class Other>
    TableAllocator(const TableAllocator<Other>& other) noexcept : bytes_(other.bytes()) {}
    ~TableAllocator() = default;
    TableAllocator& operator=(TableAllocator other) noexcept {
        bytes_ = other.bytes_;
        return *this;
    }
    TableAllocator select_on_container_copy_construction() const { return {}; }

    Element* allocate(std::size_t count) {
        if (count > static_cast<std::size_t>(-1) / sizeof(Element)) {
            throw std::bad_array_new_length();
        }
        auto* const table = static_cast<Element*>(allocateTable(count * sizeof(Element)));
        bytes_ += count * sizeof(Element);
        return table;
    }
    void deallocate(Element* table, std::size_t count) noexcept {
        freeTable(table, count * sizeof(Element));
        bytes_ -= count * sizeof(Element);
    }

    /// What was allocated and not given back.
    std::size_t bytes() const noexcept { return bytes_; }

    friend bool operator==(const TableAllocator& /*a*/, const TableAllocator& /*b*/) { return true; }
    friend bool operator!=(const TableAllocator& /*a*/, const TableAllocator& /*b*/) { return false; }

private:
    std::size_t bytes_ = 0;
};

}  // namespace sys
