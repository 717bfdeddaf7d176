#include "platform/persist/LmdbEnvironment.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <thread>

#include "platform/persist/LmdbWriters.h"

namespace persist {
namespace {

constexpr std::size_t kFirstMapBytes = std::size_t{1} << 20U;
constexpr unsigned kMaxReaders = 2048;  // slots of the lock file, for all processes together

/// The library writes its lock file through a map; a page of it that finds no room on the disk would end the process.
/// So the room is taken beforehand. The file's size stays the library's to set.
int reserveLockFile(const std::string& path) {
    constexpr std::size_t kSlotBytes = 64;
    // Where the file cannot be made, the library will tell what is wrong.
    return reserveRoom(path, (kMaxReaders + kSlotBytes) * kSlotBytes) ? MDB_SUCCESS : ENOSPC;
}

}  // namespace

LmdbEnvironment::LmdbEnvironment(const std::string& directory, const DataFile& file)
    : directory_(directory), lockPath_(directory + "/lock.mdb"), file_(file) {}

int LmdbEnvironment::open(std::size_t fileBytes, bool forWriting) {
    MDB_env* fresh = nullptr;
    int code = mdb_env_create(&fresh);
    if (code == MDB_SUCCESS) {
        code = mdb_env_set_maxreaders(fresh, kMaxReaders);
    }
    if (code == MDB_SUCCESS) {
        code = mdb_env_set_mapsize(fresh, std::max(kFirstMapBytes, fileBytes));
    }
    if (code == MDB_SUCCESS) {
        code = reserveLockFile(lockPath_);
    }
    if (code == MDB_SUCCESS) {
        // Slots belong to transactions, not threads: an idle transaction is renewed by whichever thread reads next.
        // None of the flags that save a flush, and no writable map: a commit that returned is on disk, and a stray
        // pointer of the host cannot write into the file.
        const unsigned flags = MDB_NOTLS | (forWriting ? 0U : static_cast<unsigned>(MDB_RDONLY));
        code = mdb_env_open(fresh, directory_.c_str(), flags, kFileMode);
    }
    if (code == MDB_SUCCESS) {
        environment_ = fresh;
        canWrite_ = forWriting;
        // The library leaves this one of its files open in programs that the host executes.
        mdb_filehandle_t dataFile{};
        if (mdb_env_get_fd(fresh, &dataFile) == MDB_SUCCESS) {
            keepFromChildren(dataFile);
        }
    } else if (fresh != nullptr) {
        mdb_env_close(fresh);
    }
    return code;
}

StoreStatus LmdbEnvironment::openTree() {
    StoreStatus status =
        read("open", [this](MDB_txn* transaction) { return mdb_dbi_open(transaction, nullptr, 0, &tree_); });
    if (canWrite_) {
        LmdbWriters::instance().keep(*this);  // just created; its first documents mostly follow at once
    }
    return status;
}

void LmdbEnvironment::close() {
    LmdbWriters::instance().forget(*this);
    const std::lock_guard guard(map_);
    shut();
}

/// Closes for good; `drop` alone is followed by opening anew.
void LmdbEnvironment::shut() {
    broken_ = true;
    closed_ = true;
    drop();
}

void LmdbEnvironment::drop() {
    canWrite_ = false;
    if (environment_ != nullptr && !inherited()) {
        // Idle transactions first: they point into what closing frees.
        readers_.dropIdle();
        mdb_env_close(environment_);
    }
    environment_ = nullptr;
}

/// When it fails, nothing may be read before it is done again and succeeds.
int LmdbEnvironment::reopen(bool forWriting) {
    // A user may write long after the registry closed this and opened another: two of one directory would undo each
    // other's locks.
    if (closed_) {
        return MDB_PANIC;
    }
    drop();
    // Where the path leads elsewhere now, another database would be opened under this one's name.
    const std::optional<std::uint64_t> bytes = file_.size();
    if (!bytes) {
        return MDB_PANIC;
    }
    int code = open(static_cast<std::size_t>(*bytes), forWriting);
    MDB_txn* transaction = nullptr;
    if (code == MDB_SUCCESS) {
        code = mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction);
    }
    if (code == MDB_SUCCESS) {
        // Also sets the library's key order for the tree.
        code = mdb_dbi_open(transaction, nullptr, 0, &tree_);
        mdb_txn_abort(transaction);
    }
    return code;
}

void LmdbEnvironment::reopenForReading() {
    if (reopen(false) != MDB_SUCCESS) {
        broken_ = true;
    }
}

/// Has the environment open for writing, with a map that a batch of so many bytes fits into.
int LmdbEnvironment::prepareWriting(std::size_t bytes) {
    bool ready = false;
    {
        const std::shared_lock guard(map_);
        ready = canWrite_;
    }
    if (!ready) {
        const std::lock_guard guard(map_);
        const int code = canWrite_ ? MDB_SUCCESS : reopen(true);  // another thread may have come first
        if (code != MDB_SUCCESS) {
            reopenForReading();  // what may not be written to can still be read
            return code;
        }
    }
    // A process that died inside a read keeps the pages that it read from being used again, and the file grows by all
    // that is written from then on. Nobody else would look: this environment may stay open for months.
    dropDeadReaders();
    return makeRoom(bytes);
}

void LmdbEnvironment::endWriting(bool keepOpen) {
    LmdbWriters& writers = LmdbWriters::instance();
    if (keepOpen) {
        writers.keep(*this);
    } else {
        writers.forget(*this);
        stopWriting();
    }
}

void LmdbEnvironment::stopWriting() {
    // Not waited for: a write would then last as long as the longest read beside it, and hold new reads up meanwhile.
    // Where another thread writes, this is for it to do.
    const std::unique_lock guard(map_, std::try_to_lock);
    if (guard.owns_lock() && environment_ != nullptr && canWrite_ && !inherited()) {
        reopenForReading();
    }  // else somebody is at work; the next write tries again
}

int LmdbEnvironment::beginReading(MDB_txn*& transaction) {
    return environment_ == nullptr ? MDB_PANIC : readers_.begin(environment_, transaction);
}

/// After a read that could not begin: whether to try again. What goes wrong in mending shows at the next try.
bool LmdbEnvironment::mendReading(int& code) {
    if (code == MDB_MAP_RESIZED) {
        code = adoptGrowth();
        return true;
    }
    if (code == MDB_READERS_FULL) {
        // Slots of processes that died are freed; those of our own idle transactions, too.
        readers_.dropIdle();
        dropDeadReaders();
        std::this_thread::yield();
        return true;
    }
    return false;
}

/// `mapBytes` gets the size of the map that the transaction has.
int LmdbEnvironment::beginWriting(MDB_txn*& transaction, std::size_t& mapBytes) {
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    MDB_envinfo info;
    mdb_env_info(environment_, &info);
    mapBytes = info.me_mapsize;
    return mdb_txn_begin(environment_, nullptr, 0, &transaction);
}

/// After a write: whether to try again. Whatever it had written of the batch is gone with its transaction.
bool LmdbEnvironment::mendWriting(int& code, std::size_t mapBytes) {
    int mended = MDB_SUCCESS;
    if (code == MDB_MAP_FULL) {
        dropDeadReaders();  // they keep pages from being used again
        mended = growTo(mapBytes * 2);
    } else if (code == MDB_MAP_RESIZED) {
        mended = adoptGrowth();
    } else {
        return code == EACCES;  // another write has ended since and left the environment for reading
    }
    if (mended != MDB_SUCCESS) {
        code = mended;
    }
    return mended == MDB_SUCCESS;
}

void LmdbEnvironment::dropDeadReaders() {
    const std::shared_lock guard(map_);
    if (environment_ != nullptr) {
        int dead = 0;
        mdb_reader_check(environment_, &dead);
    }
}

/// The code as a status. After damage, or a write that failed half way, the environment is of no more use.
StoreStatus LmdbEnvironment::ended(int code, const char* step) {
    if (meansDamage(code) || code == MDB_PANIC) {
        broken_ = true;
    }
    return statusOf(code, step);
}

}  // namespace persist
