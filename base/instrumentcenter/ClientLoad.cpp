#include "base/instrumentcenter/ClientLoad.h"

#include <new>
#include <utility>

namespace mxservice {

Replacement::~Replacement() {
    try {
        dropRest();
    } catch (const std::bad_alloc&) {
        // The load has failed, and its markets stay marked as dropped. To readers that is what they are, empty; on disk
        // the documents of the day before may stand still, and the next load of the market replaces them.
    }
}

void Replacement::add(MarketKey market, const std::string& db) {
    if (!db.empty() && dropped_.emplace(market, db).second) {
        client_.writeLock(db);  // made now: to drop the rest must not fail for it
    }
}

void Replacement::addLate(MarketKey market, const std::string& db) {
    add(market, db);
    late_.insert(market);
}

bool Replacement::save(MarketKey market, const std::string& db, const StoreBatch& batch) {
    if (!store().open(db)) {
        return false;
    }
    // Asked under the write mutex: of two loads that dropped the market only the first to come here replaces, or the
    // second would take away what the first has just written.
    // One that replaces late takes away whatever is there: what stays is the listing of the load that writes last.
    const bool replaces = isDropped(market) || late_.count(market) != 0;
    const bool saved = replaces ? store().replace(db, batch) : store().write(db, batch);
    if (saved) {
        dropped_.erase(market);  // who drops it from now on is another load, which will write or empty it itself
    }
    return saved;
}

void Replacement::dropRest() {
    for (const auto& [market, db] : dropped_) {
        const DatabaseWriting writing(client_, db);
        if (isDropped(market)) {
            CatalogueChange told;
            if (client_.subscribers.any()) {
                told = marketDifference(client_.hold()->market(market), {}, {}, true);
            }
            store().drop(db);
            // After the documents are gone: the other way round a list between the two would show the former day's.
            client_.publish(
                [key = market](ClientVersion& version) {
                    Market& emptied = version.markets[key].own();
                    emptied.isDropped = false;
                    emptied.isStale = false;
                },
                std::move(told));
        }
    }
    dropped_.clear();
}

}  // namespace mxservice
