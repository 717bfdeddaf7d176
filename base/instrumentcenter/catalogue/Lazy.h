#pragma once

#include <atomic>
#include <memory>

namespace mxservice {

/// A table that is made when it is first asked for. Nobody waits: of several who ask first each makes one, and the one
/// that is done first stays. Safe from any thread.
template <class Table>
class Lazy {
public:
    Lazy() = default;
    ~Lazy() { delete table_.load(std::memory_order_acquire); }
    Lazy(const Lazy&) = delete;
    Lazy& operator=(const Lazy&) = delete;

    /// `make` gives the table, the same whoever calls it.
    template <class Make>
    const Table& get(const Make& make) const {
        const Table* table = table_.load(std::memory_order_acquire);
        if (table == nullptr) {
            auto fresh = std::make_unique<const Table>(make());
            if (table_.compare_exchange_strong(table, fresh.get(), std::memory_order_acq_rel,
                                               std::memory_order_acquire)) {
                table = fresh.release();
            }
        }
        return *table;
    }
    /// The table, or null while nobody has asked for it.
    const Table* made() const { return table_.load(std::memory_order_acquire); }

private:
    mutable std::atomic<const Table*> table_{nullptr};
};

}  // namespace mxservice
