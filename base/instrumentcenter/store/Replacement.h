#pragma once

#include <set>
#include <string>
#include <utility>

#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/store/Documents.h"

namespace mxservice {

/// The databases that loads under way have dropped for their callers and not yet written; one for each load.
using DroppedDatabases = std::multiset<std::string>;

/// The databases that one load drops. To readers of this center they are empty at once. On disk each one's documents
/// stay until the load writes the database, and go in the step that brings the new ones, so that a crash leaves either;
/// what the load does not write, or fails to, is emptied at the end.
class Replacement {
public:
    explicit Replacement(Guarded<DroppedDatabases>& dropped) : dropped_(dropped) {}
    ~Replacement() { dropRest(); }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Drops a database; nothing for an empty name.
    void add(const std::string& db) {
        if (!db.empty() && pending_.insert(db).second) {
            dropped_.write()->insert(db);
        }
    }

    /// Opens the database and writes the batch; false when either fails.
    bool save(const std::string& db, const DocumentBatch& batch) {
        if (!store().initDb(db, false)) {
            return false;
        }
        if (pending_.count(db) == 0) {
            return store().writeDocuments(db, batch.documents(), false);
        }
        if (!store().replaceDocuments(db, batch.documents())) {
            return false;
        }
        pending_.erase(db);
        forget(db);
        return true;
    }

    /// Empties what was not written. Before anything is derived from the load: a host may name a database that the
    /// derived catalogues write, and what they write must stay.
    void dropRest() {
        for (const std::string& db : pending_) {
            store().dropAllData(db);
            forget(db);
        }
        pending_.clear();
    }

private:
    void forget(const std::string& db) {
        const auto dropped = dropped_.write();
        dropped->erase(dropped->find(db));
    }

    Guarded<DroppedDatabases>& dropped_;
    std::set<std::string> pending_;
};

}  // namespace mxservice
