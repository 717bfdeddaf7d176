#pragma once

#include <lmdb.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "platform/persist/DataFile.h"
#include "platform/persist/LmdbCalls.h"
#include "platform/persist/LmdbReaders.h"
#include "platform/persist/StoreEngine.h"
#include "platform/persist/System.h"
#include "system/SharedMutex.h"

namespace persist {

/// How much a write changes.
struct WriteSize {
    std::size_t bytes = 0;    ///< of what is put, about
    std::size_t entries = 0;  ///< put or removed

    /// Whether the memory of the pages that it writes is little, and opening an environment much beside it.
    bool isSmall() const {
        constexpr std::size_t kSmallBytes = std::size_t{256} << 10U;
        constexpr std::size_t kFewEntries = 64;
        return bytes <= kSmallBytes && entries <= kFewEntries;
    }
};

/// One LMDB environment and the transactions on it. Transactions hold `map_` shared, so that the map grows, and the
/// environment is closed or opened anew, only while none is under way. Safe from any thread once it is open.
///
/// It is opened for reading, and anew for the first write: the library has no other way. After a small write it stays
/// open for writing while it is one of the `LmdbWriters`. After a large one it is opened for reading again, because the
/// library keeps the memory of all pages that it ever wrote; after one that failed as well, because the library then
/// may refuse every further transaction.
class LmdbEnvironment {
public:
    /// How often a transaction, or another step that others can get in the way of, is tried.
    static constexpr int kMaxAttempts = 1000;

    /// That of the directory in which `file` lies; `file` outlives it.
    LmdbEnvironment(const std::string& directory, const DataFile& file);
    ~LmdbEnvironment() { close(); }
    LmdbEnvironment(const LmdbEnvironment&) = delete;
    LmdbEnvironment& operator=(const LmdbEnvironment&) = delete;

    /// Opens it, once and before anything else, with a map for a file of so many bytes; the library's code.
    /// `forWriting` creates the database where the file is empty.
    int open(std::size_t fileBytes, bool forWriting);
    /// Has the tree that holds the entries opened; once, after the environment.
    StoreStatus openTree();
    /// Closes it; every later call fails. Waits for transactions under way. What a forked child inherited is left
    /// alone: closing it would close it for the parent.
    void close();

    bool inherited() const { return forks_ != forkCount(); }
    /// Whether it may be used further. After some failures it must be opened anew, as another object.
    bool usable() const { return !broken_.load() && !inherited(); }
    MDB_dbi tree() const { return tree_; }

    /// Frees the slots of processes that died inside a read.
    void dropDeadReaders();
    /// Has it open for reading only, unless it is in use right now.
    void stopWriting();

    /// Calls `use` with a read transaction, once; its code, or the library's, as a status.
    template <class Use>
    StoreStatus read(const char* step, Use use) {
        int code = MDB_SUCCESS;
        bool again = true;
        for (int attempt = 0; again && attempt < kMaxAttempts; ++attempt) {
            {
                const std::shared_lock guard(map_);
                MDB_txn* transaction = nullptr;
                code = beginReading(transaction);
                if (code == MDB_SUCCESS) {
                    const LmdbReading reading(readers_, transaction);
                    return ended(use(transaction), step);
                }
            }
            again = mendReading(code);
        }
        return ended(code == MDB_SUCCESS ? MDB_MAP_RESIZED : code, step);
    }

    /// Calls `use` with a write transaction and commits it when `use` answers MDB_SUCCESS; the code as a status. `use`
    /// is called anew, in a fresh transaction, when the map has to grow. It may count entries in `size`; the bytes
    /// are asked for before.
    template <class Use>
    StoreStatus write(const char* step, const WriteSize& size, Use use) {
        Writing end(*this);
        int code = MDB_SUCCESS;
        bool again = true;
        for (int attempt = 0; again && attempt < kMaxAttempts; ++attempt) {
            code = prepareWriting(size.bytes);
            if (code != MDB_SUCCESS) {
                break;
            }
            std::size_t mapBytes = 0;
            {
                const std::shared_lock guard(map_);
                MDB_txn* transaction = nullptr;
                code = beginWriting(transaction, mapBytes);
                if (code == MDB_SUCCESS) {
                    LmdbWriter writer(transaction);
                    code = use(transaction);
                    code = code == MDB_SUCCESS ? writer.commit() : code;
                }
            }
            again = mendWriting(code, mapBytes);
        }
        end.keepOpen(code == MDB_SUCCESS && size.isSmall());
        return ended(code, step);
    }

private:
    /// Ends writing, also when a value cannot be made for want of memory.
    class Writing {
    public:
        explicit Writing(LmdbEnvironment& environment) : environment_(environment) {}
        ~Writing() { environment_.endWriting(keepOpen_); }
        Writing(const Writing&) = delete;
        Writing& operator=(const Writing&) = delete;
        void keepOpen(bool keep) { keepOpen_ = keep; }

    private:
        LmdbEnvironment& environment_;
        bool keepOpen_ = false;
    };

    int beginReading(MDB_txn*& transaction);
    bool mendReading(int& code);
    int prepareWriting(std::size_t bytes);
    int beginWriting(MDB_txn*& transaction, std::size_t& mapBytes);
    bool mendWriting(int& code, std::size_t mapBytes);
    void endWriting(bool keepOpen);
    StoreStatus ended(int code, const char* step);

    // Under `map_`, exclusive.
    void shut();
    void drop();
    int reopen(bool forWriting);
    void reopenForReading();
    int remap(std::size_t bytes);

    int adoptGrowth();
    int growTo(std::size_t bytes);
    int makeRoom(std::size_t bytes);

    const std::string directory_;
    const std::string lockPath_;
    const DataFile& file_;
    const unsigned forks_ = forkCount();
    sys::SharedMutex map_;
    // Under `map_`.
    MDB_env* environment_ = nullptr;
    bool canWrite_ = false;  // the environment, as it is open now
    bool closed_ = false;    // for good

    MDB_dbi tree_ = 0;
    std::atomic<bool> broken_{false};
    LmdbReaders readers_;
};

}  // namespace persist
