#pragma once

#include <map>
#include <set>
#include <string>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/OuterTables.h"
#include "base/instrumentcenter/store/ClientLog.h"
#include "base/instrumentcenter/store/CodeIndex.h"
#include "base/instrumentcenter/store/DBBuilder.h"
#include "base/instrumentcenter/store/Documents.h"
#include "base/instrumentcenter/store/RecordCache.h"
#include "base/instrumentcenter/store/Replacement.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

/// Names that catalogue databases have instead of a market. Stored; never change.
constexpr const char* kFutureMains = "FUMAIN";
constexpr const char* kFutureProducts = "FUPROD";
constexpr const char* kAllEtfs = "ALLETF";
constexpr const char* kBankBonds = "BANKBOND";
constexpr const char* kOtcInstruments = "OTCINS";

/// Whether a market of that name would have its documents among a catalogue's own. Not so with the derived catalogues:
/// theirs lie beneath fields, where no market's documents are.
inline bool isCatalogueName(std::string_view market) {
    return market == kAllEtfs || market == kBankBonds || market == kOtcInstruments;
}

/// What memory knows of a catalogue whose records live in the store: the keys, and the records that could not be
/// written.
template <class Record>
struct StoredCatalogue {
    std::set<std::uint64_t> keys;
    std::map<std::uint64_t, boost::shared_ptr<Record>> unsaved;
    bool isBehind = false;  // the database may hold what an earlier load brought
};

/// The record among those that could not be written, or null.
template <class Record>
boost::shared_ptr<Record> unsavedRecord(const Guarded<StoredCatalogue<Record>>& guarded, std::uint64_t key) {
    const auto catalogue = guarded.read();
    const auto found = catalogue->unsaved.find(key);
    return found == catalogue->unsaved.end() ? nullptr : found->second;
}

/// A copy of the market's main contracts; empty for a market without entry.
inline KeySet mainsOfMarket(const Guarded<FuturesCatalogue>& catalogue, MarketKey market) {
    const auto futures = catalogue.read();
    const auto found = futures->mainCodesByMarket.find(market);
    return found == futures->mainCodesByMarket.end() ? KeySet() : found->second;
}

/// Records whose market could not be written. `records` keeps the last batch of every market that ever failed;
/// `current` names the markets whose newest batch it is, because their last write failed.
struct ParkedRecords {
    GroupedSnapshot records;
    std::set<MarketKey> current;
};

struct IssuanceCatalogue {
    std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> issuances;
    std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>> priceSettings;
};

/// Everything the persisted center keeps in memory. `strand` and the two market sets are constant after construction;
/// every other member guards itself. No operation holds two of their locks at once, or one while it calls the store,
/// but for the write mutex of one database (SharedDatabases): a load holds it while it empties or writes that database,
/// and locks `dropped` beneath it. Lookups never take it.
struct ClientState {
    ClientState(const std::string& strandName, int instrumentCacheSize, int bondCacheSize, int otcCacheSize)
        : strand(net::RPCEngine::instance()->getStrand(strandName)),
          instruments(instrumentCacheSize),
          bonds(bondCacheSize),
          plans(otcCacheSize) {}

    /// The record among those parked after a failed write, or null.
    InstrumentPtr parkedRecord(MarketKey market, StockKey key) const {
        const auto parked = failedDatas.read();
        const auto records = parked->records.find(market);
        if (records == parked->records.end()) {
            return nullptr;
        }
        const auto found = records->second.find(key);
        return found == records->second.end() ? nullptr : found->second;
    }

    /// Every one of the market's.
    MarketRecords parkedRecords(MarketKey market) const {
        const auto parked = failedDatas.read();
        const auto records = parked->records.find(market);
        return records == parked->records.end() ? MarketRecords() : records->second;
    }

    /// Whether the market's parked records are newer than its database. After a write that succeeded they are kept,
    /// for what the database gives nothing for.
    bool parkedIsCurrent(MarketKey market) const { return failedDatas.read()->current.count(market) != 0; }

    const boost::shared_ptr<net::Strand> strand;
    DBBuilder names;
    CodeIndex codeIndex;
    Guarded<ParkedRecords> failedDatas;
    SharedDatabases databases;
    /// Markets that a host's own class has filed under keys other than those of the records.
    Guarded<std::set<MarketKey>> oddlyKeyed;
    RecordCache<CInstrumentDetail> instruments;
    RecordCache<CBondInfoDetail> bonds;
    RecordCache<COTCFundPlanInfo> plans;
    const std::set<MarketKey> futureMarkets = futureMarketKeys();
    const std::set<MarketKey> outerMarkets{marketKey(market::kOuterFuture)};
    Guarded<FuturesCatalogue> futures;
    Guarded<OuterTables> outer;
    Guarded<StoredCatalogue<CETFDetail>> etfs;  // keys: both of every fund
    Guarded<StoredCatalogue<CBondInfoDetail>> bondCatalogue;
    Guarded<std::map<std::string, std::string>> interbankCodes;  // bond code by stock key text of a listing
    Guarded<std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>> counterparties;
    Guarded<std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>> tenderBonds;
    Guarded<StoredCatalogue<COTCFundPlanInfo>> otc;
    Guarded<IssuanceCatalogue> issuance;
};

/// What one load carries through its steps, on its own thread.
struct ClientLoad {
    explicit ClientLoad(ClientState& client) : replacement(client.databases) {}

    Replacement replacement;
    LoadNotes notes;
    StepWatch steps;
};

}  // namespace mxservice
