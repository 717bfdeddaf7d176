#pragma once

#include <cstddef>
#include <memory>

#include "Suite.h"

namespace bench {

/// Days from files: how long it takes until an in-memory center has one.
class DayReads {
public:
    /// Makes a day of so many instruments, as NDJSON, CSV and gzip in memory.
    explicit DayReads(std::size_t size);
    ~DayReads();
    DayReads(const DayReads&) = delete;
    DayReads& operator=(const DayReads&) = delete;

    /// This object must outlive the suite's run.
    void add(Suite& suite) const;

private:
    struct Texts;
    std::unique_ptr<const Texts> texts_;
};

}  // namespace bench
