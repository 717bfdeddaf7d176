#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/Chains.h"
#include "base/instrumentcenter/catalogue/FiledKeys.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/catalogue/LayeredIndex.h"
#include "base/instrumentcenter/catalogue/Lazy.h"

namespace mxservice {

/// The source file that every log line of the in-memory center names, whatever unit it comes from.
constexpr const char* kServerSource = "base/instrumentcenter/CServerInstrumentCenter";

struct PlanCatalogue {
    std::map<std::int32_t, std::vector<boost::shared_ptr<COTCFundPlanInfo>>> byGroup;
    HashIndex<boost::shared_ptr<COTCFundPlanInfo>> byKey;  // by stock key
};

/// What is derived of the records alone, and only where it is asked for: most hosts never do, and with all of it a load
/// would take twice as long. Shared by all versions that have the same records.
struct AskedTables {
    Lazy<DerivativeTables> derivatives;
    Lazy<RecordTable> listed;
    Lazy<RecordTable> expiring;
};

/// Everything that the in-memory center answers from, of one moment.
struct ServerVersion final : Version {
    std::shared_ptr<Version> copy() const override { return std::make_shared<ServerVersion>(*this); }
    void settle(const Version& former) override {
        // Here for every change there is, so that none has to know which tables it outdates.
        const auto& before = static_cast<const ServerVersion&>(former);
        if (!records.isSameAs(before.records) || keys.sets() != before.keys.sets()) {
            asked = std::make_shared<const AskedTables>();
        }
    }

    const DerivativeTables& derivatives() const {
        return asked->derivatives.get([this] { return deriveDerivatives(placesOf(derivativeMarkets())); });
    }
    const RecordTable& listedByDay() const {
        return asked->listed.get([this] { return deriveDays(allPlaces(), &CInstrumentDetail::listingDate); });
    }
    const RecordTable& expiringByDay() const {
        return asked->expiring.get([this] { return deriveDays(allPlaces(), &CInstrumentDetail::expireDate); });
    }

    /// The records of the keys, in the order of the keys; a key without a record is passed over.
    template <class Keys>
    std::vector<InstrumentPtr> resolve(const Keys& wanted) const {
        std::vector<InstrumentPtr> found;
        found.reserve(wanted.size());
        for (const StockKey key : wanted) {
            if (InstrumentPtr record = recordOf(key)) {
                found.push_back(std::move(record));
            }
        }
        return found;
    }
    /// The records that the market lists.
    std::vector<InstrumentPtr> recordsOf(MarketKey market) const {
        const KeySet* const listed = keys.keysOf(market);
        return listed == nullptr ? std::vector<InstrumentPtr>() : resolve(*listed);
    }

    /// Where the records stand that the markets list; valid as long as this version.
    RecordPlaces placesOf(const std::vector<MarketKey>& markets) const {
        RecordPlaces places;
        for (const MarketKey market : markets) {
            if (const KeySet* const listed = keys.keysOf(market)) {
                for (const StockKey key : *listed) {
                    const InstrumentPtr* const record = records.find(key);
                    if (record != nullptr && *record) {
                        places.push_back(record);
                    }
                }
            }
        }
        return places;
    }
    /// Where every listed record stands.
    RecordPlaces allPlaces() const {
        std::vector<MarketKey> markets;
        for (const auto& [market, listed] : keys.sets()) {
            markets.push_back(market);
        }
        return placesOf(markets);
    }

    /// A copy of the key's record; empty when there is none.
    InstrumentPtr recordOf(StockKey key) const noexcept {
        const InstrumentPtr* const record = records.find(key);
        return record == nullptr ? InstrumentPtr() : *record;
    }

    // The same stock keys in both: a predicate looks at half the memory that a record's place takes.
    LayeredIndex<InstrumentPtr> records;  // may be null: a host's derived class may file a key without a record
    FiledKeys keys;
    Part<FuturesCatalogue> futures;
    Part<HashIndex<boost::shared_ptr<CETFDetail>>> etfs;        // both keys of every fund
    Part<HashIndex<boost::shared_ptr<CBondInfoDetail>>> bonds;  // by bond key
    Part<std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>> counterparties;
    Part<PlanCatalogue> plans;
    Part<std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>>> issuances;
    Part<HashIndex<boost::shared_ptr<CTenderBondInfoDetail>>> tenderBonds;  // by hash of code
    std::shared_ptr<const AskedTables> asked = std::make_shared<const AskedTables>();
};

/// What one load changes: prepared step by step without a lock, then made into one version, so that readers see all of
/// it or nothing.
class ServerChange {
public:
    /// Files the records and makes them what their markets list. They must stay until the change is published.
    void file(const GroupedSnapshot& grouped);
    /// Makes what is filed the whole of these markets: what they had beside it goes, of derived catalogues, too. After
    /// file(), before add().
    void replace(const std::vector<std::string>& markets);
    /// What else is changed, in the order of the calls. `step` is run while no other load publishes.
    void add(std::function<void(ServerVersion&)> step) { steps_.push_back(std::move(step)); }

    /// Makes all of it one version; none where there is nothing to change.
    void publishTo(InterfaceState& state);

    /// Once it is published: of the market's records, how many took the place of another one.
    std::uint64_t replacedIn(MarketKey market) const { return replacedByMarket_.at(market); }
    /// The keys that a replaced market has lost.
    const KeySet& goneFrom(MarketKey market) { return goneByMarket_[market]; }
    /// The replaced markets by their names.
    const std::map<std::string, MarketKey>& replacedMarkets() const { return replacedMarkets_; }

private:
    void applyTo(ServerVersion& version);
    void forgetRest(ServerVersion& version);

    const GroupedSnapshot* grouped_ = nullptr;
    FiledKeys::Sets keysByMarket_;
    std::map<MarketKey, std::uint64_t> replacedByMarket_;
    std::map<std::string, MarketKey> replacedMarkets_;
    std::map<MarketKey, KeySet> goneByMarket_;
    std::vector<std::function<void(ServerVersion&)>> steps_;
};

/// What the in-memory center keeps beside its versions; constant after construction.
struct ServerState {
    explicit ServerState(const std::string& strandName) : strand(net::RPCEngine::instance()->getStrand(strandName)) {}

    const boost::shared_ptr<net::Strand> strand;
    const std::set<MarketKey> futureMarkets = futureMarketKeys();
};

/// What a short question is answered by the version of this moment.
template <class Question>
auto ask(const InterfaceState& state, Question question) {
    static_assert(std::is_nothrow_invocable_v<Question&, const ServerVersion&>, "it would end the host");
    return state.versions.ask(
        [question](const Version& version) noexcept { return question(static_cast<const ServerVersion&>(version)); });
}

/// What subscribers are told of two versions. `touched`: the only keys that can differ, where that is known.
CatalogueChange difference(const ServerVersion& former, const ServerVersion& fresh, const KeySet* touched);

/// What subscribers are told of a version in the place of another one.
inline InterfaceState::MakeDifference differenceMaker(std::shared_ptr<const KeySet> touched) {
    using Shared = std::shared_ptr<const Version>;
    return [touched = std::move(touched)](const Shared& former, const Shared& fresh) {
        return [former, fresh, touched] {
            return difference(static_cast<const ServerVersion&>(*former), static_cast<const ServerVersion&>(*fresh),
                              touched.get());
        };
    };
}

/// Publishes a version changed by `change`, and tells subscribers.
template <class Change>
void publish(InterfaceState& state, const Change& change, std::shared_ptr<const KeySet> touched = nullptr) {
    state.publish([&](Version& version) { change(static_cast<ServerVersion&>(version)); },
                  differenceMaker(std::move(touched)));
    state.subscribers.tell();
}

/// A step of the loads, called alone by a host's derived class, is a version by itself.
template <class Step>
void publishStep(InterfaceState& state, const Step& step) {
    ServerChange change;
    step(change);
    change.publishTo(state);
}

/// Puts a batch of changes into a table, all as one version. A batch of nothing makes none: version() counts what
/// readers can see.
template <class Table, class Record, class Put>
void publishBatch(InterfaceState& state, Part<Table> ServerVersion::*part,
                  const std::vector<boost::shared_ptr<Record>>& batch, const Put& put) {
    if (std::all_of(batch.begin(), batch.end(), [](const auto& record) { return !record; })) {
        return;
    }
    publish(state, [&](ServerVersion& version) {
        Table& table = (version.*part).own();
        for (const auto& record : batch) {
            if (record) {
                put(table, record);
            }
        }
    });
}

}  // namespace mxservice
