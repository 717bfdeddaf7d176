#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientLoad.h"
#include "base/instrumentcenter/catalogue/Amendment.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/store/DBBuilder.h"
#include "base/instrumentcenter/store/Documents.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Changes of single records.

namespace mxservice {

/// One call of applyChanges on its way through store, versions and derived catalogues.
class ClientAmendment {
public:
    ClientAmendment(CClientInstrumentCenter& center, const std::vector<InstrumentPtr>& upserts,
                    const std::vector<std::string>& removedKeys);
    void apply();

private:
    /// What changes of one market.
    struct MarketChange {
        std::string name;  // of upserts; folded
        std::string db;
        MarketRecords records;
        KeySet gone;
        /// Where the store has refused this change or one before: all that the market has from now on.
        std::shared_ptr<const MarketRecords> unwritten;
        std::optional<std::string> failure;
    };

    void collect();
    void amendRaw() const;
    void amendStore();
    void write(MarketKey market, MarketChange& change);
    MarketRecords wholeOf(MarketKey market, const MarketChange& change) const;
    void publish();
    void tell();
    bool touchesMains(MarketKey market, const MarketChange& change) const;
    void amendMains();
    void amendProducts();
    void deriveAnew();

    CClientInstrumentCenter& center_;
    ClientState& client_;
    ClientTelling telling_;  // before what is filed is looked at, and through all locks
    const std::vector<InstrumentPtr>& batch_;
    Amendment amendment_;
    FormerRecords former_;
    std::map<MarketKey, MarketChange> changes_;
};

namespace {

/// What lists have of the key. Not from the record cache, which may keep what an earlier load has left of it.
InstrumentPtr listedRecord(const Market& market, StockKey key) {
    InstrumentPtr record;
    if (!market.unwrittenIsNewest && !market.isDropped) {
        record = readRecord<CInstrumentDetail>(market.db, key);
    }
    return record ? record : market.unwrittenRecord(key);
}

}  // namespace

ClientAmendment::ClientAmendment(CClientInstrumentCenter& center, const std::vector<InstrumentPtr>& upserts,
                                 const std::vector<std::string>& removedKeys)
    : center_(center), client_(*center.client_), telling_(client_), batch_(upserts) {
    LoadNotes unused;
    center_.group(upserts, amendment_.upserts, amendment_.listings, unused);
    setRemoved(removedKeys, amendment_);
    const auto version = client_.hold();
    for (const StockKey key : amendment_.touched()) {
        if (const MarketKey* const market = version->keys.marketOf(key)) {
            former_[key] = {*market, listedRecord(version->market(*market), key)};
        }
    }
    keepListings(former_, listingsCombined, amendment_);
    combineConnectFlags(amendment_.upserts, amendment_.listings);
    collect();
}

void ClientAmendment::collect() {
    for (const auto& [market, records] : amendment_.upserts) {
        if (!records.empty()) {
            MarketChange& change = changes_[market];
            change.name = foldedMarket(records.begin()->second->market);
            change.db = DBBuilder::buildDbName(change.name);
            change.records = records;
        }
    }
    const auto version = client_.hold();
    for (auto& [market, keys] : goneKeys(amendment_, former_)) {
        MarketChange& change = changes_[market];
        change.gone = std::move(keys);
        if (change.db.empty()) {
            change.db = version->market(market).db;
        }
    }
}

void ClientAmendment::apply() {
    if (changes_.empty()) {
        return;
    }
    amendRaw();
    amendStore();
    tell();
    amendMains();
    amendProducts();
    deriveAnew();
}

/// First: who dies before the market itself is written leaves a change that the next load of the family brings.
void ClientAmendment::amendRaw() const {
    constexpr std::array<const char*, 5> kRawMarkets{market::kShanghaiConnect, market::kHongKong,
                                                     market::kShenzhenConnect, market::kShanghai,
                                                     market::kShanghaiSpecial};
    for (const char* const name : kRawMarkets) {
        MarketRecords records;
        for (const InstrumentPtr& record : batch_) {
            if (record && record->market == name) {
                records[stockKey(name, record->code)] = record;
            }
        }
        std::vector<std::string> removed;
        const bool special = name == std::string_view(market::kShanghaiSpecial);
        const MarketKey folded = marketKey(special ? market::kShanghai : foldedMarket(name));
        for (const auto& [key, filed] : former_) {
            if (filed.market == folded && filed.record && amendment_.removed.contains(key)) {
                removed.push_back(std::to_string(stockKey(name, filed.record->code)));
            }
        }
        if (records.empty() && removed.empty()) {
            continue;
        }
        const std::string db = DBBuilder::buildRawDbName(name);
        const bool isOpen = records.empty() || store().open(db);
        // Where there is nothing to remove from, none of it is there: only what was to be put is missed.
        if (!(isOpen && store().change(db, DocumentBatch(records), removed)) && !records.empty()) {
            const std::string reason = store().lastFailure();
            client_.loads.write()->noteFailedWrite(db, reason);
        }
    }
}

/// Documents, then keys, with no load of these markets in between: what is filed has its document.
void ClientAmendment::amendStore() {
    {
        const LogDelay delay;  // ends after the locks are dropped
        std::map<std::string, std::unique_lock<std::mutex>> writing;
        for (const auto& [market, change] : changes_) {
            writing[change.db];
        }
        for (auto& [db, lock] : writing) {  // by name: two calls at once must not wait for each other
            lock = std::unique_lock(client_.writeLock(db));
        }
        for (auto& [market, change] : changes_) {
            // Before the write: a cached lookup answers the new record from now on, never one older than the store's.
            client_.instruments.refresh(change.records);
            write(market, change);
        }
        publish();
        // For a reader that met the old document in between.
        for (auto& [market, change] : changes_) {
            client_.instruments.refresh(change.records);
        }
    }
    for (const auto& [market, change] : changes_) {
        if (change.failure) {
            PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, change.name));
            client_.loads.write()->noteFailedWrite(change.db, *change.failure);
        }
    }
}

void ClientAmendment::write(MarketKey market, MarketChange& change) {
    const auto version = client_.hold();
    const Market& known = version->market(market);
    if (known.unwrittenIsNewest) {
        // Memory alone has the market, until a load can write it: these documents would stand among a former day's.
        change.unwritten = std::make_shared<const MarketRecords>(wholeOf(market, change));
        return;
    }
    const DocumentBatch batch(change.records);
    std::vector<std::string> removed;
    for (const StockKey key : change.gone) {
        removed.push_back(std::to_string(key));
    }
    // What an earlier process left, or a load under way has dropped, is not the market's any more.
    const bool replaces = known.db.empty() || known.isDropped;
    if (isCatalogueName(change.name)) {
        change.failure = "a catalogue's own documents have that name";
    } else if (!store().open(change.db) ||
               !(replaces ? store().replace(change.db, batch) : store().change(change.db, batch, removed))) {
        change.failure = store().lastFailure();
    }
    if (change.failure) {
        change.unwritten = std::make_shared<const MarketRecords>(wholeOf(market, change));
    }
}

/// Everything that the market has with the change.
MarketRecords ClientAmendment::wholeOf(MarketKey market, const MarketChange& change) const {
    const auto version = client_.hold();
    const Market& known = version->market(market);
    MarketRecords whole;
    if (known.unwritten) {
        whole = *known.unwritten;  // of a former day perhaps: documents are newer unless the last write failed
    }
    if (!known.unwrittenIsNewest && !known.db.empty() && !known.isDropped) {
        std::vector<StockKey> keys;
        const auto records = readRecords<CInstrumentDetail>(known.db, recordOf<CInstrumentDetail>,
                                                            [&](std::string_view key, const auto& /*record*/) {
                                                                keys.push_back(documentKey(key));
                                                                return true;
                                                            });
        for (std::size_t i = 0; i < records.size(); ++i) {
            whole[keys[i]] = records[i];
        }
    }
    std::erase_if(whole, [&](const auto& entry) {
        const MarketKey* const filed = version->keys.marketOf(entry.first);
        return change.gone.contains(entry.first) || filed == nullptr || *filed != market;
    });
    for (const auto& [key, record] : change.records) {
        whole[key] = record;
    }
    return whole;
}

void ClientAmendment::publish() {
    const KeySet touched = amendment_.touched();
    const auto mains = deriveMainContracts(amendment_.upserts, client_.futureMarkets);
    client_.publish([&](ClientVersion& version) {
        version.keys.amend(upsertedKeys(amendment_), goneKeys(amendment_, former_));
        for (const auto& [hash, change] : changes_) {
            Market& market = version.markets[hash].own();
            if (change.unwritten) {
                market.unwritten = change.unwritten;
                market.unwrittenIsNewest = true;
            } else {
                market.isDropped = false;
            }
            if (!change.name.empty()) {
                version.updateDbName(change.name, change.db);
            }
        }
        if (!mains.empty() || namesMainContract(touched, *version.futures)) {
            amendMainContracts(touched, mains, version.futures.own());
        }
        amendCodes(amendment_, version.codeSets.own());
    });
}

void ClientAmendment::tell() {
    for (const auto& [market, change] : changes_) {
        std::string name = change.name;
        for (const auto& [key, filed] : former_) {
            if (name.empty() && filed.market == market && filed.record) {
                name = filedMarketName(market, {{key, filed.record}});
            }
            if (filed.market == market && change.records.count(key) == 0) {
                telling_.compare(filed.record, nullptr);
            }
        }
        for (const auto& [key, record] : change.records) {
            const auto filed = former_.find(key);
            telling_.compare(filed == former_.end() ? nullptr : filed->second.record, record);
        }
        telling_.addMarket(name);
    }
}

/// Whether a main contract of the market comes, changes or goes.
bool ClientAmendment::touchesMains(MarketKey market, const MarketChange& change) const {
    constexpr std::int32_t kMainContract = 1;
    return std::any_of(change.records.begin(), change.records.end(),
                       [](const auto& entry) { return entry.second->mainContractFlag == kMainContract; }) ||
           std::any_of(former_.begin(), former_.end(), [market](const auto& entry) {
               const FormerRecord& filed = entry.second;
               return filed.market == market && (!filed.record || filed.record->mainContractFlag == kMainContract);
           });
}

/// The documents of the main contracts: a market's are one field, so it is written whole.
void ClientAmendment::amendMains() {
    GroupedSnapshot grouped;
    const auto version = client_.hold();
    for (const auto& [market, change] : changes_) {
        if (client_.futureMarkets.count(market) == 0 || !touchesMains(market, change)) {
            continue;
        }
        MarketRecords& mains = grouped[market];  // also where none is left
        if (const auto keys = version->futures->mainCodesByMarket.find(market);
            keys != version->futures->mainCodesByMarket.end()) {
            for (const StockKey key : keys->second) {
                if (InstrumentPtr record = center_.CClientInstrumentCenter::getInstrument(key)) {
                    mains[key] = std::move(record);
                }
            }
        }
    }
    if (!grouped.empty()) {
        center_.createFutureMainDatas(grouped);
    }
}

/// The documents of the contracts, a field for each product.
void ClientAmendment::amendProducts() {
    std::map<std::string, std::map<StockKey, InstrumentPtr>> contractsByProduct;
    for (const auto& [key, filed] : former_) {
        if (filed.record && client_.futureMarkets.count(filed.market) != 0) {
            contractsByProduct[filed.record->productId];
        }
    }
    for (const auto& [market, change] : changes_) {
        if (client_.futureMarkets.count(market) != 0) {
            for (const auto& [key, record] : change.records) {
                contractsByProduct[record->productId][key] = record;
            }
        }
    }
    if (contractsByProduct.empty()) {
        return;
    }
    const KeySet touched = amendment_.touched();
    GroupedSnapshot grouped;
    std::vector<std::string> emptied;
    for (auto& [product, contracts] : contractsByProduct) {
        for (const InstrumentPtr& contract : center_.CClientInstrumentCenter::getProductInstruments(product)) {
            const StockKey key = stockKey(contract->market, contract->code);
            if (!touched.contains(key)) {
                contracts[key] = contract;
            }
        }
        for (const auto& [key, contract] : contracts) {
            grouped[marketKey(contract->market)][key] = contract;
        }
        if (contracts.empty()) {
            emptied.push_back(product);
        }
    }
    if (!emptied.empty()) {
        // Its field in the store is left: without the product nothing leads there.
        client_.publish([&](ClientVersion& version) {
            for (const std::string& product : emptied) {
                version.storedFutures.own().products.erase(product);
            }
        });
    }
    if (!grouped.empty()) {
        center_.createFutureProdcutDatas(grouped);
    }
}

/// What only a whole listing tells, from the documents as they are now.
void ClientAmendment::deriveAnew() {
    GroupedSnapshot listings;
    const auto moment = client_.hold();
    const auto list = [&](MarketKey market) -> MarketRecords& {
        InstrumentMap records;
        CClientInstrumentCenter::addMarket(*moment, market, {}, nullptr, records);
        MarketRecords& listing = listings[market];
        for (auto& [text, record] : records) {
            listing[textKey(text)] = std::move(record);
        }
        return listing;
    };
    for (const std::string& name : marketsToDerive(amendment_, former_)) {
        list(marketKey(name));
    }
    if (!listings.empty()) {
        client_.publish(
            [&](ClientVersion& version) { installDerived(listings, version.futures.own(), version.codeSets.own()); });
    }
    listings.clear();
    for (const MarketKey outer : client_.outerMarkets) {
        if (changes_.count(outer) != 0) {
            list(outer);
        }
    }
    if (!listings.empty()) {
        center_.createOutterProductDatas(listings);
    }
}

void CClientInstrumentCenter::applyChanges(const std::vector<boost::shared_ptr<CInstrumentDetail>>& upserts,
                                           const std::vector<std::string>& removedKeys) {
    PM_CENTER_LOG(kLogInfo, kClientSource,
                  fmt::format("[inscenter] apply changes: [{0}] records, [{1}] keys removed", upserts.size(),
                              removedKeys.size()));
    ClientAmendment(*this, upserts, removedKeys).apply();
}

}  // namespace mxservice
