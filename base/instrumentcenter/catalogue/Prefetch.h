#pragma once

#include <boost/shared_ptr.hpp>

#include <array>
#include <cstddef>

// Walking containers of record pointers. Records lie anywhere in memory; touching them one after the other waits for
// every one of them, while records fetched a few steps ahead come in together.

namespace mxservice {

/// So many records are on their way into the cache at once: about as many misses as a processor can wait for.
constexpr std::size_t kRecordsAhead = 12;

/// Fetches a record's reference count, which boost::make_shared puts right before it.
template <class Record>
void prefetchCount(const boost::shared_ptr<Record>& record) {
#ifdef __GNUC__
    constexpr std::size_t kBytesBefore = 24;
    if (record) {
        __builtin_prefetch(reinterpret_cast<const char*>(record.get()) - kBytesBefore, 1);
    }
#endif
}

template <class Value>
void prefetchCount(const Value& /*value*/) {}

/// Fetches all of a record, which is then walked through.
template <class Record>
void prefetchWhole(const Record& record) {
#ifdef __GNUC__
    constexpr std::size_t kLineBytes = 64;
    for (std::size_t at = 0; at < sizeof(Record); at += kLineBytes) {
        __builtin_prefetch(reinterpret_cast<const char*>(&record) + at);
    }
#endif
}

/// Calls `visit` with every entry (a key and a record pointer) of a container, in its order, and `fetch` with the
/// pointer some entries before that. The container is walked once: trees are slow to walk, too.
template <class Container, class Visit, class Fetch>
void visitAhead(Container& container, const Visit& visit, const Fetch& fetch) {
    std::array<decltype(&*container.begin()), kRecordsAhead> fetched;  // a ring
    std::size_t count = 0;
    std::size_t oldest = 0;
    for (auto& entry : container) {
        fetch(entry.second);
        if (count < kRecordsAhead) {
            fetched[count++] = &entry;
            continue;
        }
        visit(*fetched[oldest]);
        fetched[oldest] = &entry;
        oldest = oldest + 1 == kRecordsAhead ? 0 : oldest + 1;
    }
    for (std::size_t i = 0; i < count; ++i) {
        visit(*fetched[(oldest + i) % count]);
    }
}

/// Fetches members of a record.
template <class Record, class... Members>
void prefetchMembers(const boost::shared_ptr<Record>& record, Members... members) {
#ifdef __GNUC__
    if (record) {
        (__builtin_prefetch(&((*record).*members)), ...);
    }
#endif
}

/// Calls `visit` with every key and record, but for empty pointers, having fetched the given members.
template <class Records, class Visit, class... Members>
void visitRecords(const Records& records, const Visit& visit, Members... members) {
    visitAhead(
        records,
        [&](const auto& entry) {
            if (entry.second) {
                visit(entry.first, entry.second);
            }
        },
        [&](const auto& record) { prefetchMembers(record, members...); });
}

/// Lets go of every record of a container that is about to be destroyed.
template <class Container>
void releaseAhead(Container& container) {
    visitAhead(
        container, [](auto& entry) { entry.second = {}; }, [](const auto& record) { prefetchCount(record); });
}

}  // namespace mxservice
