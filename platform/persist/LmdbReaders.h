#pragma once

#include <lmdb.h>

#include <array>
#include <mutex>
#include <vector>

namespace persist {

/// The read transactions of one environment. Those that ended are kept for reuse: renewing one costs a tenth of
/// beginning it. Safe from any thread; the environment must not be closed while one of them is under way, nor before
/// the idle ones are dropped.
class LmdbReaders {
public:
    /// Begins to read; the library's code. `transaction` is null when it fails.
    int begin(MDB_env* environment, MDB_txn*& transaction);
    /// Ends what was begun.
    void end(MDB_txn* transaction) noexcept;
    /// Gives the slots of idle transactions back.
    void dropIdle();

private:
    struct alignas(64) Idle {
        std::mutex lock;
        std::vector<MDB_txn*> transactions;
    };

    Idle& idleOfThread();

    std::array<Idle, 16> idle_;  // by thread, so that threads that read at once do not meet
};

/// Ends a read transaction, also when a visitor throws.
class LmdbReading {
public:
    LmdbReading(LmdbReaders& readers, MDB_txn* transaction) : readers_(readers), transaction_(transaction) {}
    ~LmdbReading() { readers_.end(transaction_); }
    LmdbReading(const LmdbReading&) = delete;
    LmdbReading& operator=(const LmdbReading&) = delete;

private:
    LmdbReaders& readers_;
    MDB_txn* const transaction_;
};

}  // namespace persist
