#include "platform/persist/LmdbReaders.h"

#include <new>
#include <utility>

#include "system/ThreadLine.h"

namespace persist {

LmdbReaders::Idle& LmdbReaders::idleOfThread() {
    return idle_[sys::ThreadLine::ofThread() % idle_.size()];
}

int LmdbReaders::begin(MDB_env* environment, MDB_txn*& transaction) {
    transaction = nullptr;
    // Taken out while it is in use, so the lock is held for two stores; the one that was put back last is most likely
    // in the processor's cache still.
    Idle& idle = idleOfThread();
    {
        const std::lock_guard guard(idle.lock);
        if (!idle.transactions.empty()) {
            transaction = idle.transactions.back();
            idle.transactions.pop_back();
        }
    }
    if (transaction == nullptr) {
        return mdb_txn_begin(environment, nullptr, MDB_RDONLY, &transaction);
    }
    const int code = mdb_txn_renew(transaction);
    if (code != MDB_SUCCESS) {
        // It gives its slot back. Kept, it would fail again for whoever takes it next.
        mdb_txn_abort(std::exchange(transaction, nullptr));
    }
    return code;
}

void LmdbReaders::end(MDB_txn* transaction) noexcept {
    // An idle one keeps its slot and lets go of the state that it read, whose pages writers may then use again.
    mdb_txn_reset(transaction);
    Idle& idle = idleOfThread();
    const std::lock_guard guard(idle.lock);
    try {
        idle.transactions.push_back(transaction);
    } catch (const std::bad_alloc&) {  // no reason for a read that is done to fail
        mdb_txn_abort(transaction);
    }
}

void LmdbReaders::dropIdle() {
    for (Idle& idle : idle_) {
        const std::lock_guard guard(idle.lock);
        for (MDB_txn* const transaction : idle.transactions) {
            mdb_txn_abort(transaction);
        }
        idle.transactions.clear();
    }
}

}  // namespace persist
