#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/ClientTelling.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/store/Documents.h"

namespace mxservice {

/// Keeps other loads of this center from writing the database, for as long as it lives. Lines of the calling thread
/// wait meanwhile: from within one an appender may load the same market, and would wait for itself.
class DatabaseWriting {
public:
    DatabaseWriting(ClientState& client, const std::string& db)
        : telling_(client.subscribers), guard_(client.writeLock(db)) {}

private:
    const Subscribers::HoldBack telling_;  // a handler may load the same market, too
    const LogDelay delay_;                 // ends after the lock is dropped
    const std::lock_guard<std::mutex> guard_;
};

/// The databases that one load drops. To readers of this center they are empty at once. On disk each one's documents
/// stay until the load writes the database, and go in the step that brings the new ones, so that a crash leaves either;
/// what the load does not write, or fails to, is emptied at the end. Loads that drop a database at the same time keep
/// what either writes afterwards: the first write takes the old documents away, the second one adds.
class Replacement {
public:
    explicit Replacement(ClientState& client) : client_(client) {}
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /// Before the market is published as dropped: notes that this load is to write or empty its database.
    void add(MarketKey market, const std::string& db);
    /// The same for a market whose documents readers see until the load writes its database.
    void addLate(MarketKey market, const std::string& db);
    bool drops(MarketKey market) const { return dropped_.count(market) != 0; }

    /// Opens the market's database and writes the batch; false when either fails. The caller has its DatabaseWriting,
    /// and publishes the market as no longer dropped: what memory keeps of it is to change before another load can
    /// write it.
    bool save(MarketKey market, const std::string& db, const StoreBatch& batch);

    /// Empties what was not written. Before anything is derived from the load: a host may name a database that the
    /// derived catalogues write, and what they write must stay.
    void dropRest();

private:
    bool isDropped(MarketKey market) const {
        return client_.ask(
            [market](const ClientVersion& version) noexcept { return version.market(market).isDropped; });
    }

    ClientState& client_;
    std::map<MarketKey, std::string> dropped_;  // databases, by this load
    std::set<MarketKey> late_;                  // of those: readers see them until they are written
};

/// What one load carries through its steps, on its own thread.
struct ClientLoad {
    explicit ClientLoad(ClientState& state) : client(state), telling(state.subscribers), replacement(state) {}

    /// What the load is to tell of a market, see marketDifference; nothing where nobody listens.
    CatalogueChange difference(const Market& known, const std::string& name, const MarketRecords& records,
                               bool isWhole) const {
        return client.subscribers.any() ? marketDifference(known, name, records, isWhole) : CatalogueChange();
    }

    /// Shows what is to be told of the market that was written, at its end.
    class Showing {
    public:
        explicit Showing(ClientLoad& load) : load_(load) {}
        ~Showing() {
            if (const auto written = std::exchange(load_.note, nullptr)) {
                load_.client.subscribers.show(*written);
            }
        }
        Showing(const Showing&) = delete;
        Showing& operator=(const Showing&) = delete;

    private:
        ClientLoad& load_;
    };

    bool replaces(MarketKey market) const { return replaced.count(market) != 0; }

    ClientState& client;
    const Subscribers::HoldBack telling;  // all of the load, which is told together at its end
    Stopwatch watch;                      // begins before the steps do
    Replacement replacement;
    std::map<MarketKey, std::string> replaced;  // names of the markets of which the batch is the whole
    std::shared_ptr<Subscribers::Note> note;    // of the market that is being written
    LoadNotes notes;
    StepWatch steps;
};

}  // namespace mxservice
