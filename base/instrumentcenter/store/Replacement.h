#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/store/Documents.h"

namespace mxservice {

/// What the loads of a center do to the databases they share.
struct SharedDatabases {
    /// Dropped, as far as this center's callers can tell, by loads under way, and not written since.
    Guarded<std::set<std::string>> dropped;

    /// Held while a database is emptied or written. One mutex a database: loads of different markets do not wait for
    /// each other.
    std::mutex& writeLock(const std::string& db) { return (*writeLocks_.write())[db]; }

private:
    Guarded<std::map<std::string, std::mutex>> writeLocks_;
};

/// Keeps other loads of this center from writing the database, for as long as it lives. Lines of the calling thread
/// wait meanwhile: from within one an appender may load the same market, and would wait for itself.
class DatabaseWriting {
public:
    DatabaseWriting(SharedDatabases& databases, const std::string& db) : guard_(databases.writeLock(db)) {}

private:
    const LogDelay delay_;  // ends after the lock is dropped
    const std::lock_guard<std::mutex> guard_;
};

/// The databases that one load drops. To readers of this center they are empty at once. On disk each one's documents
/// stay until the load writes the database, and go in the step that brings the new ones, so that a crash leaves either;
/// what the load does not write, or fails to, is emptied at the end. Loads that drop a database at the same time keep
/// what either writes afterwards: the first write takes the old documents away, the second one adds.
class Replacement {
public:
    explicit Replacement(SharedDatabases& databases) : databases_(databases) {}
    ~Replacement() { dropRest(); }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Drops a database; nothing for an empty name.
    void add(const std::string& db) {
        if (!db.empty() && dropped_.insert(db).second) {
            databases_.writeLock(db);  // made now: to drop the rest takes no memory
            databases_.dropped.write()->insert(db);
        }
    }

    /// Opens the database and writes the batch; false when either fails. The caller has its DatabaseWriting: what
    /// memory keeps of the market is to change before another load can write it.
    bool save(const std::string& db, const StoreBatch& batch) {
        if (!store().open(db)) {
            return false;
        }
        if (!isDropped(db)) {
            if (!store().write(db, batch)) {
                return false;
            }
        } else {
            if (!store().replace(db, batch)) {
                return false;
            }
            databases_.dropped.write()->erase(db);
        }
        dropped_.erase(db);  // who drops it from now on is another load, which will write it or empty it itself
        return true;
    }

    /// Empties what was not written. Before anything is derived from the load: a host may name a database that the
    /// derived catalogues write, and what they write must stay.
    void dropRest() {
        for (const std::string& db : dropped_) {
            const DatabaseWriting writing(databases_, db);
            if (isDropped(db)) {
                store().drop(db);
                databases_.dropped.write()->erase(db);
            }
        }
        dropped_.clear();
    }

private:
    bool isDropped(const std::string& db) const { return databases_.dropped.read()->count(db) != 0; }

    SharedDatabases& databases_;
    std::set<std::string> dropped_;  // by this load
};

}  // namespace mxservice
