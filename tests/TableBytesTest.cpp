#include "base/instrumentcenter/catalogue/TableBytes.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <vector>

// What the statistics say of a table against what it asked operator new for.

namespace {

thread_local std::size_t* allocated = nullptr;

}  // namespace

// Not inlined: GCC would take the one for a mismatch of the other.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (allocated != nullptr) {
        *allocated += size;
    }
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace mxservice {
namespace {

/// The bytes that a copy allocates. Copies are as full as containers come, with nothing freed meanwhile.
template <class Table>
std::size_t allocatedByCopyOf(const Table& table, std::unique_ptr<Table>& copy) {
    std::size_t bytes = 0;
    allocated = &bytes;
    copy = std::make_unique<Table>(table);
    allocated = nullptr;
    return bytes - sizeof(Table);
}

template <class Table>
void expectMeasured(const Table& table) {
    std::unique_ptr<Table> copy;
    const std::size_t bytes = allocatedByCopyOf(table, copy);
    if constexpr (requires { copy->get_allocator().bytes(); }) {
        EXPECT_EQ(heapBytes(*copy), bytes) << table.size();
    }
    // How the containers lay themselves out is theirs; what they hold must not be left out or counted twice.
    EXPECT_NEAR(static_cast<double>(heapBytes(*copy)), static_cast<double>(bytes),
                64 + 0.1 * static_cast<double>(bytes))
        << table.size();
}

TEST(TableBytes, AreAboutThoseThatTheTableAllocated) {
    for (const std::size_t size : {0U, 1U, 14U, 15U, 29U, 30U, 1000U, 30011U}) {
        HashIndex<std::uint64_t> markets;
        HashIndex<boost::shared_ptr<std::string>> records;
        KeySet keys;
        std::set<std::uint64_t> ordered;
        std::map<std::string, std::string> texts;
        for (std::size_t i = 0; i < size; ++i) {
            const std::uint64_t key = i * 0x9e3779b97f4a7c15U;
            markets.emplace(key, i);
            records.emplace(key, boost::make_shared<std::string>(100, 'x'));
            keys.insert(key);
            ordered.insert(key);
            texts.emplace(std::to_string(i), std::string(i % 40, 'x'));
        }
        expectMeasured(markets);
        expectMeasured(records);
        expectMeasured(keys);
        expectMeasured(ordered);
        expectMeasured(texts);
        expectMeasured(std::map<std::uint64_t, KeySet>{{1, keys}, {2, {}}});
        expectMeasured(std::map<std::int32_t, std::vector<boost::shared_ptr<std::string>>>{
            {1, std::vector<boost::shared_ptr<std::string>>(size)}});
    }
}

TEST(TableBytes, ACountGoesWithItsTable) {
    KeySet keys;
    for (std::uint64_t key = 0; key < 1000; ++key) {
        keys.insert(key * 0x9e3779b97f4a7c15U);
    }
    const std::size_t bytes = tableBytes(keys);
    EXPECT_LT(bytes, 3 * 1000 * sizeof(std::uint64_t)) << "the tables that were too small are not counted";
    KeySet moved(std::move(keys));
    EXPECT_EQ(tableBytes(keys), 0U) << "moved from, to be used again";
    KeySet other;
    std::swap(moved, other);
    EXPECT_EQ(tableBytes(other), bytes);
    EXPECT_EQ(tableBytes(moved), 0U);
    other = KeySet();
    EXPECT_EQ(tableBytes(other), 0U);
}

}  // namespace
}  // namespace mxservice
