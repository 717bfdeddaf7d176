#include <algorithm>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientFutures.h"
#include "base/instrumentcenter/ClientLoad.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "base/instrumentcenter/store/DBBuilder.h"
#include "base/instrumentcenter/store/Documents.h"

// Futures: main contracts and the contracts of products, which are derived from a load and kept in the store, spreads,
// and the tables of outer markets. The store is written first and the version that tells of it published afterwards: a
// reader between the two asks by the former version, and gets the new documents of a field that it knows.

namespace mxservice {
namespace {

/// Sub-documents stand beneath a field named by the decimal text of a hash: any market or product id will do.
std::string fieldOf(const std::string& name) {
    return std::to_string(marketKey(name));
}

std::vector<uint64> listOf(const KeySet& keys) {
    return {keys.begin(), keys.end()};
}

}  // namespace

std::map<MarketKey, std::string> writeMains(const GroupedSnapshot& mainsByMarket) {
    const std::string db = DBBuilder::buildDbName(kFutureMains);
    std::list<DocumentBatch<CInstrumentDetail>> batches;  // of the fields, which refer to them
    std::vector<StoreField> fields;
    for (const auto& [market, mains] : mainsByMarket) {
        fields.push_back({std::to_string(market), &batches.emplace_back(mains)});
    }
    std::map<MarketKey, std::string> refused;
    const bool isOpen = store().open(db);
    // All in one step; where that fails, market by market, so that one cannot keep the others out.
    if (fields.empty() || (isOpen && store().replaceFields(db, fields))) {
        return refused;
    }
    auto field = fields.begin();
    for (const auto& [market, mains] : mainsByMarket) {
        if (!(isOpen && store().replaceFields(db, {*field}))) {
            refused[market] = store().lastFailure();
        }
        ++field;
    }
    return refused;
}

void setUnwrittenMains(const GroupedSnapshot& mainsByMarket, const std::map<MarketKey, std::string>& refused,
                       ClientVersion& version) {
    std::set<MarketKey>& unwritten = version.storedFutures.own().unwrittenMains;
    for (const auto& [market, mains] : mainsByMarket) {
        unwritten.erase(market);  // what could be written is the newest again, whatever failed before
    }
    for (const auto& [market, reason] : refused) {
        unwritten.insert(market);
    }
    version.updateDbName(kFutureMains, DBBuilder::buildDbName(kFutureMains));
}

std::optional<std::string> writeProducts(const std::map<std::string, std::vector<InstrumentPtr>>& contractsByProduct) {
    const std::string db = DBBuilder::buildDbName(kFutureProducts);
    std::list<DocumentBatch<CInstrumentDetail>> batches;  // of the fields, which refer to them
    std::vector<StoreField> fields;
    for (const auto& [product, contracts] : contractsByProduct) {
        std::vector<DocumentBatch<CInstrumentDetail>::Source> records;
        records.reserve(contracts.size());
        for (const InstrumentPtr& contract : contracts) {
            records.emplace_back(stockKey(contract->market, contract->code), contract.get());
        }
        fields.push_back({fieldOf(product), &batches.emplace_back(records)});
    }
    // Without a product nothing can be lost, whatever the store says.
    const bool saved = (store().open(db) && store().replaceFields(db, fields)) || fields.empty();
    return saved ? std::nullopt : std::optional(store().lastFailure());
}

void setProducts(const std::map<std::string, std::vector<InstrumentPtr>>& contractsByProduct, bool isUnwritten,
                 ClientVersion& version) {
    auto& products = version.storedFutures.own().products;
    for (const auto& [name, contracts] : contractsByProduct) {
        StoredProduct product;
        product.isUnwritten = isUnwritten;
        for (const InstrumentPtr& contract : contracts) {
            if (isUnwritten) {  // else the store has them, and memory need not
                product.contracts.push_back(stockKey(contract->market, contract->code));
            }
            product.markets.insert(marketKey(contract->market));
        }
        products[name] = std::move(product);  // of a product that is known the new one counts, others stay
    }
    version.updateDbName(kFutureProducts, DBBuilder::buildDbName(kFutureProducts));
}

void reportRefused(const char* catalogue, const std::string& reason, ClientState& client) {
    PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, catalogue));
    client.loads.write()->noteFailedWrite(DBBuilder::buildDbName(catalogue), reason);
}

void CClientInstrumentCenter::createFutureMainDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create future main datas");
    const std::string db = DBBuilder::buildDbName(kFutureMains);
    auto mainsByMarket = deriveMainContracts(grouped, client_->futureMarkets);
    GroupedSnapshot records;
    for (const auto& [market, mains] : mainsByMarket) {
        MarketRecords& ofMarket = records[market];
        for (const StockKey key : mains.all) {
            ofMarket[key] = grouped.at(market).at(key);
        }
    }
    std::map<MarketKey, std::string> refused;
    {
        // Of two that write them at once the last has its way in store and memory.
        const DatabaseWriting writing(*client_, db);
        refused = writeMains(records);
        client_->publish([&](ClientVersion& version) {
            FuturesCatalogue& futures = version.futures.own();
            for (auto& [market, mains] : mainsByMarket) {
                installMainContracts(market, mains, futures);
            }
            setUnwrittenMains(records, refused, version);
        });
    }
    for (const auto& [market, reason] : refused) {
        reportRefused(kFutureMains, reason, *client_);
    }
    ClientState::logDbName(kFutureMains, db);
}

void CClientInstrumentCenter::createFutureProdcutDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create future product datas");
    const auto contractsByProduct = deriveProductContracts(grouped, client_->futureMarkets);
    const std::string db = DBBuilder::buildDbName(kFutureProducts);
    std::optional<std::string> refused;
    {
        const DatabaseWriting writing(*client_, db);
        refused = writeProducts(contractsByProduct);
        client_->publish(
            [&](ClientVersion& version) { setProducts(contractsByProduct, refused.has_value(), version); });
    }
    if (refused) {
        reportRefused(kFutureProducts, *refused, *client_);
    }
    ClientState::logDbName(kFutureProducts, db);
}

void CClientInstrumentCenter::createFutureDceDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    // Swapped: what is replaced is destroyed when no lock is held any more.
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(grouped)) {
        client_->publish([&](ClientVersion& version) { std::swap(version.futures.own().spreads, *spreads); });
    }
}

void CClientInstrumentCenter::createOutterProductDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    OuterTables fresh = deriveOuterTables(grouped, client_->outerMarkets);
    client_->publish([&](ClientVersion& version) { install(fresh, version.outer.own()); });
}

// By this class's own lookup: a host's override may be made of the lists that ask here.
std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::recordsOf(const std::vector<uint64>& keys) {
    std::vector<InstrumentPtr> records;
    records.reserve(keys.size());
    for (const StockKey key : keys) {
        if (InstrumentPtr record = CClientInstrumentCenter::getInstrument(key)) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getFutureMainInstruments(
    const std::string& market) {
    const auto version = client_->hold();
    const MarketKey key = marketKey(market);
    const auto known = version->futures->mainCodesByMarket.find(key);
    InstrumentMap out;
    if (known == version->futures->mainCodesByMarket.end()) {
        return out;  // also for a field that an earlier run left
    }
    // By key: the field in the store still has those of the last load that could write it.
    if (version->storedFutures->unwrittenMains.count(key) != 0) {
        addByKeyText(recordsOf(listOf(known->second)), out);
    } else {
        addByKeyText(readField(version->getDbName(kFutureMains), fieldOf(market)), out);
    }
    return out;
}

std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>>
CClientInstrumentCenter::getProductMainInstruments() {
    const auto version = client_->hold();
    std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>> mains;
    for (const auto& [product, keys] : version->futures->mainCodesByProduct) {
        const std::vector<InstrumentPtr> records = recordsOf(listOf(keys));
        mains[product].assign(records.begin(), records.end());
    }
    return mains;
}

std::list<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getProductInstruments(
    const std::string& productId) {
    const auto version = client_->hold();
    const auto found = version->storedFutures->products.find(productId);
    if (found == version->storedFutures->products.end()) {
        return {};  // also for a field that an earlier run left
    }
    const StoredProduct& product = found->second;
    const auto records = product.isUnwritten ? recordsOf(product.contracts)
                                             : readField(version->getDbName(kFutureProducts), fieldOf(productId));
    return {records.begin(), records.end()};
}

void CClientInstrumentCenter::removeMarkets(const std::vector<std::string>& markets) {
    const Subscribers::HoldBack telling(client_->subscribers);  // all markets together
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        const MarketKey key = marketKey(name);
        KeySet keys = client_->listedKeys(key);  // which the next line forgets
        clearDatas({name});
        // Reads the store, so not within the publication, for which all others would wait.
        std::map<std::string, StoredProduct> products = productsWithout(key);
        client_->publish([&](ClientVersion& version) {
            // What loads have left that did not name the market.
            const KeySet left = version.keys.unfileAll(key);
            keys.insert(left.begin(), left.end());
            removeMarket(name, version.codeSets.own());
            removeMarket(key, keys, version.futures.own());
            StoredFutures& futures = version.storedFutures.own();
            futures.unwrittenMains.erase(key);
            for (auto& [product, rest] : products) {
                // A load of another market of the product may have come in between: then it has none of this one.
                const auto known = futures.products.find(product);
                if (known == futures.products.end() || known->second.markets.count(key) == 0) {
                    continue;
                }
                if (rest.contracts.empty()) {
                    futures.products.erase(product);
                } else {
                    std::swap(futures.products[product], rest);
                }
            }
            if (client_->outerMarkets.count(key) != 0) {
                version.outer.set({});  // whole: one market alone has such tables
            }
        });
    }
}

/// The products that have contracts of the market, with those that they have of others: their field in the store still
/// has the market's, so they answer by key from now on.
std::map<std::string, StoredProduct> CClientInstrumentCenter::productsWithout(uint64 market) {
    const auto version = client_->hold();
    std::map<std::string, StoredProduct> products;
    for (const auto& [name, stored] : version->storedFutures->products) {
        if (stored.markets.count(market) == 0) {
            continue;
        }
        StoredProduct& rest = products[name];
        rest.isUnwritten = true;
        for (const InstrumentPtr& contract : CClientInstrumentCenter::getProductInstruments(name)) {
            const MarketKey key = marketKey(contract->market);
            if (key != market) {
                rest.contracts.push_back(stockKey(contract->market, contract->code));
                rest.markets.insert(key);
            }
        }
    }
    return products;
}

std::string CClientInstrumentCenter::getProductId(const std::string& market, const std::string& code) {
    const InstrumentPtr record = getInstrument(market, code);
    return record ? record->productId : std::string();
}

std::string CClientInstrumentCenter::getProductName(const std::string& /*productId*/) {
    // Deliberately empty, as in the in-memory center: neither keeps the names of futures products.
    return {};
}

std::vector<std::pair<std::string, std::string>> CClientInstrumentCenter::getDceCrossProduct() {
    return client_->hold()->futures->spreads.crossProduct;
}

std::vector<std::pair<std::string, std::string>> CClientInstrumentCenter::getDceCrossPeriod() {
    return client_->hold()->futures->spreads.crossPeriod;
}

std::string CClientInstrumentCenter::getOutterProductName(const std::string& productId) {
    return in(client_->hold()->outer->productNames, productId);
}

std::map<std::string, std::string> CClientInstrumentCenter::getOutterProduct() {
    return client_->hold()->outer->productNames;
}

std::string CClientInstrumentCenter::getOutterMarketName(const std::string& market) {
    return in(client_->hold()->outer->marketNames, market);
}

std::map<std::string, std::string> CClientInstrumentCenter::getOutterMarket() {
    return client_->hold()->outer->marketNames;
}

std::map<std::string, std::set<std::string>> CClientInstrumentCenter::getMarketProductList() {
    return client_->hold()->outer->productsByMarket;
}

bool CClientInstrumentCenter::isCommodityProduct(const std::string& productId) {
    return client_->hold()->outer->commodityProducts.count(productId) != 0;
}

bool CClientInstrumentCenter::isInterestProduct(const std::string& productId) {
    return client_->hold()->outer->interestProducts.count(productId) != 0;
}

}  // namespace mxservice
