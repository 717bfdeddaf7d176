// How the map of an environment grows. The library cannot change it under a transaction of this process, so all of this
// waits for the calls in flight and holds new ones up meanwhile; transactions of other processes do not matter.

#include <algorithm>

#include "platform/persist/LmdbEnvironment.h"
#include "platform/persist/System.h"

namespace persist {
namespace {

constexpr std::size_t kLargestMapBytes = std::size_t{1} << 38U;

}  // namespace

/// Takes over the size to which another process has grown the file: the library reads it when it is given none.
int LmdbEnvironment::adoptGrowth() {
    const std::lock_guard guard(map_);
    return remap(0);
}

int LmdbEnvironment::growTo(std::size_t bytes) {
    if (bytes > kLargestMapBytes) {
        return MDB_MAP_FULL;
    }
    const std::lock_guard guard(map_);
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    MDB_envinfo info;
    mdb_env_info(environment_, &info);
    // Of several writers that found the same map full, the first grows it for all.
    return info.me_mapsize >= bytes ? MDB_SUCCESS : remap(bytes);
}

/// Where the new map cannot be had, the old one is gone already: the environment would read through no map at all, so
/// it is closed, and the next call opens another.
int LmdbEnvironment::remap(std::size_t bytes) {
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    const std::size_t least = leastMapBytes(file_.size().value_or(0));
    const int code = mdb_env_set_mapsize(environment_, std::max(bytes, least));
    if (code != MDB_SUCCESS) {
        shut();
    }
    return code;
}

/// Grows the map ahead of a batch, so that a large one is not written several times over. Only address space is taken:
/// the file grows by what is written.
int LmdbEnvironment::makeRoom(std::size_t bytes) {
    MDB_envinfo info;
    MDB_stat stat;
    {
        const std::shared_lock guard(map_);
        if (environment_ == nullptr) {
            return MDB_PANIC;
        }
        mdb_env_info(environment_, &info);
        mdb_env_stat(environment_, &stat);
    }
    // Twice the batch, because pages need not be full. Places that are free in the file are not counted on: a reader
    // may hold them.
    const std::size_t needed = (info.me_last_pgno + 1) * stat.ms_psize + 2 * bytes;
    std::size_t size = info.me_mapsize;
    while (size < needed && size < kLargestMapBytes) {
        size *= 2;
    }
    return size == info.me_mapsize ? MDB_SUCCESS : growTo(size);
}

}  // namespace persist
