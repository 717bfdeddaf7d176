#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/FiledKeys.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/OuterTables.h"

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

// "Unwritten" is, here and everywhere below, what a load brought and the store refused.

/// What the persisted center knows of a market, but for its keys. Catalogues have one, too, for their database.
struct Market {
    /// Where its documents are; empty until a load has brought it: what an earlier process left is not ours to answer.
    std::string db;
    /// A load under way has dropped its documents and not written it since: to readers the database is empty.
    bool isDropped = false;
    /// The documents are older than what lists had last: a load has forgotten a batch that was unwritten.
    bool isStale = false;
    /// A host's own class has filed records under keys other than theirs.
    bool isOddlyKeyed = false;
    /// The last batch that was unwritten, kept after later writes, too, for what the database gives nothing for; null
    /// where there was none.
    std::shared_ptr<const MarketRecords> unwritten;
    /// That batch is newer than the database, because the last write failed.
    bool unwrittenIsNewest = false;

    InstrumentPtr unwrittenRecord(StockKey key) const { return unwritten ? in(*unwritten, key) : nullptr; }
};

/// Adds the unwritten records of a market under their key texts, in the place of what stands there; false when there
/// are none.
inline bool addUnwritten(const Market& market, std::map<std::string, InstrumentPtr>& out) {
    if (!market.unwritten) {
        return false;
    }
    for (const auto& [key, record] : *market.unwritten) {
        if (record) {
            out[keyTextOf(*record)] = record;
        }
    }
    return !market.unwritten->empty();
}

/// What memory knows of a catalogue whose records live in the store.
template <class Record>
struct StoredCatalogue {
    using Records = std::map<std::uint64_t, boost::shared_ptr<Record>>;

    std::set<std::uint64_t> keys;
    Records unwritten;
    bool isBehind = false;  // the database may hold what an earlier load brought
};

/// The contracts of a product.
struct StoredProduct {
    bool isUnwritten = false;
    std::vector<StockKey> contracts;  // where they are unwritten
    std::set<MarketKey> markets;      // of the contracts
};

/// What the store holds of futures and what it does not.
struct StoredFutures {
    std::set<MarketKey> unwrittenMains;             // markets whose main contracts are unwritten
    std::map<std::string, StoredProduct> products;  // every one since the center's construction
};

/// Everything that the persisted center knows beside its records, of one moment.
struct ClientVersion final : Version {
    std::shared_ptr<Version> copy() const override { return std::make_shared<ClientVersion>(*this); }

    const Market& market(MarketKey key) const {
        static const Market& unknown = *new Market;  // never destroyed: threads may ask while the process exits
        const auto found = markets.find(key);
        return found == markets.end() ? unknown : *found->second;
    }
    /// The database registered for a market or catalogue, or an empty text.
    const std::string& getDbName(const std::string& name) const { return market(marketKey(name)).db; }
    /// Registers or replaces it; together with what leads to its documents, so that nothing is known and not to be
    /// read.
    void updateDbName(const std::string& name, const std::string& db) { markets[marketKey(name)].own().db = db; }

    FiledKeys keys;
    std::map<MarketKey, Part<Market>> markets;
    Part<FuturesCatalogue> futures;
    Part<StoredFutures> storedFutures;
    Part<OuterTables> outer;
    Part<StoredCatalogue<CETFDetail>> etfs;  // keys: both of every fund
    Part<StoredCatalogue<CBondInfoDetail>> bonds;
    Part<std::map<std::string, std::string>> interbankCodes;  // bond code by stock key text of a listing
    Part<StoredCatalogue<COTCFundPlanInfo>> plans;
    Part<std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>> counterparties;
    Part<std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>> tenderBonds;
    Part<std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>>> issuances;
    Part<std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>> priceSettings;
};

}  // namespace mxservice
