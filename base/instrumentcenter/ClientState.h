#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientVersion.h"
#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/store/ClientLog.h"
#include "base/instrumentcenter/store/RecordCache.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

/// Everything the persisted center keeps in memory: its versions, the caches of records, and a mutex for each database.
/// No operation holds a lock while it calls the store, but for that mutex: a load holds it while it empties or writes
/// the database. Lookups never take it.
class ClientState {
public:
    ClientState(InterfaceState& state, const std::string& strandName, int instrumentCacheSize, int bondCacheSize,
                int otcCacheSize)
        : strand(net::RPCEngine::instance()->getStrand(strandName)),
          instruments(instrumentCacheSize),
          bonds(bondCacheSize),
          plans(otcCacheSize),
          loads(state.loads),
          subscribers(state.subscribers),
          state_(state) {
        state_.versions.update([](const Version& /*empty*/) { return std::make_shared<ClientVersion>(); });
    }

    /// What a short question is answered by the version of this moment.
    template <class Question>
    auto ask(Question question) const {
        static_assert(std::is_nothrow_invocable_v<Question&, const ClientVersion&>, "it would end the host");
        return state_.versions.ask([question](const Version& version) noexcept {
            return question(static_cast<const ClientVersion&>(version));
        });
    }
    /// The version of this moment.
    std::shared_ptr<const ClientVersion> hold() const {
        return std::static_pointer_cast<const ClientVersion>(state_.versions.hold());
    }
    /// Publishes a version changed by `change`, and tells subscribers of catalogues beside the instruments.
    template <class Change>
    void publish(const Change& change) {
        using Shared = std::shared_ptr<const Version>;
        state_.publish([&](Version& version) { change(static_cast<ClientVersion&>(version)); },
                       [](const Shared& former, const Shared& fresh) -> Subscribers::Difference {
                           CatalogueChange told;
                           told.version = fresh->number;
                           addCatalogues(static_cast<const ClientVersion&>(*former),
                                         static_cast<const ClientVersion&>(*fresh), told);
                           if (told.catalogues.empty()) {
                               return nullptr;
                           }
                           return [told] { return told; };
                       });
        subscribers.tell();
    }

    /// The same with what is to be told of instruments, if it is anything. More is to be published before readers see
    /// all of that, so whoever calls shows the note, if there is one.
    template <class Change>
    std::shared_ptr<Subscribers::Note> publishUnshown(const Change& change, CatalogueChange told) {
        using Shared = std::shared_ptr<const Version>;
        const auto shared = std::make_shared<CatalogueChange>(std::move(told));
        return state_.publishUnshown([&](Version& version) { change(static_cast<ClientVersion&>(version)); },
                                     [&](const Shared& /*former*/, const Shared& fresh) -> Subscribers::Difference {
                                         if (shared->markets.empty()) {
                                             return nullptr;
                                         }
                                         shared->version = fresh->number;
                                         return [shared] { return std::move(*shared); };
                                     });
    }
    /// The same where readers see all of it at once.
    template <class Change>
    void publish(const Change& change, CatalogueChange told) {
        if (const auto note = publishUnshown(change, std::move(told))) {
            subscribers.show(*note);
        }
        subscribers.tell();
    }

    /// A copy of the keys that the market lists.
    KeySet listedKeys(MarketKey market) const {
        const auto version = hold();
        const KeySet* const listed = version->keys.keysOf(market);
        return listed == nullptr ? KeySet() : *listed;
    }

    /// Says in the log that a market's or catalogue's database has been registered.
    static void logDbName(const std::string& name, const std::string& db) {
        PM_CENTER_LOG(kLogInfo, kClientSource,
                      formatted("[clientIns] update db, market=%1%, db=%2%, hash=%3%", name, db, marketKey(name)));
    }

    /// Held while a database is emptied or written. One mutex a database: loads of different markets do not wait for
    /// each other.
    std::mutex& writeLock(const std::string& db) { return (*writeLocks_.write())[db]; }

    const boost::shared_ptr<net::Strand> strand;
    RecordCache<CInstrumentDetail> instruments;
    RecordCache<CBondInfoDetail> bonds;
    RecordCache<COTCFundPlanInfo> plans;
    /// Held through applyChanges: each goes by what the one before has left. Recursive, for an appender that changes
    /// something from within a line.
    std::recursive_mutex changes;
    Guarded<LoadLedger>& loads;
    Subscribers& subscribers;
    const std::set<MarketKey> futureMarkets = futureMarketKeys();
    const std::set<MarketKey> outerMarkets{marketKey(market::kOuterFuture)};

private:
    InterfaceState& state_;
    Guarded<std::map<std::string, std::mutex>> writeLocks_;
};

}  // namespace mxservice
