#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <utility>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"

// What is derived from a load: futures main contracts and products (kept in the store), spreads, code sets and outer
// markets. Derivation runs without a lock; only the finished table goes in under one.

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

void CClientInstrumentCenter::createFutureMainDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create future main datas");
    const std::string db = DBBuilder::buildDbName(kFutureMains);
    auto mainsByMarket = deriveMainContracts(grouped, client_->futureMarkets);
    std::list<DocumentBatch<CInstrumentDetail>> batches;  // of the fields, which refer to them
    std::vector<StoreField> fields;
    for (const auto& [market, mains] : mainsByMarket) {
        std::vector<DocumentBatch<CInstrumentDetail>::Source> records;
        for (const StockKey key : mains.all) {
            records.emplace_back(key, grouped.at(market).at(key).get());
        }
        fields.push_back({std::to_string(market), &batches.emplace_back(records)});
    }
    store().open(db);
    // All in one step; where that fails, market by market, so that one cannot keep the others out.
    const bool allSaved = fields.empty() || store().replaceFields(db, fields);
    auto field = fields.begin();
    for (auto& [market, mains] : mainsByMarket) {
        const bool saved = allSaved || store().replaceFields(db, {*field});
        ++field;
        if (!saved) {
            const std::string reason = store().lastFailure();
            PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, kFutureMains));
            state().loads.write()->noteFailedWrite(db, reason);
        }
        const auto futures = client_->futures.write();
        installMainContracts(market, mains, *futures);
        if (saved) {
            futures->unsavedMarkets.erase(market);
        } else {
            futures->unsavedMarkets.insert(market);
        }
    }
    client_->names.updateDbName(kFutureMains, db);
}

void CClientInstrumentCenter::createFutureProdcutDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create future product datas");
    std::list<DocumentBatch<CInstrumentDetail>> batches;  // of the fields, which refer to them
    std::vector<StoreField> fields;
    const auto contractsByProduct = deriveProductContracts(grouped, client_->futureMarkets);
    for (const auto& [product, contracts] : contractsByProduct) {
        std::vector<DocumentBatch<CInstrumentDetail>::Source> records;
        records.reserve(contracts.size());
        for (const InstrumentPtr& contract : contracts) {
            records.emplace_back(stockKey(contract->market, contract->code), contract.get());
        }
        fields.push_back({fieldOf(product), &batches.emplace_back(records)});
    }
    const std::string db = DBBuilder::buildDbName(kFutureProducts);
    const bool saved = (store().open(db) && store().replaceFields(db, fields)) || fields.empty();
    if (!saved) {
        const std::string reason = store().lastFailure();
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, kFutureProducts));
        state().loads.write()->noteFailedWrite(db, reason);
    }
    {
        const auto futures = client_->futures.write();
        for (const auto& [product, contracts] : contractsByProduct) {
            std::vector<StockKey> keys;
            if (!saved) {
                std::transform(
                    contracts.begin(), contracts.end(), std::back_inserter(keys),
                    [](const InstrumentPtr& contract) { return stockKey(contract->market, contract->code); });
            }
            std::set<MarketKey> markets;
            for (const InstrumentPtr& contract : contracts) {
                markets.insert(marketKey(contract->market));
            }
            futures->products[product] = {saved, std::move(keys), std::move(markets)};
        }
    }
    client_->names.updateDbName(kFutureProducts, db);
}

void CClientInstrumentCenter::createFutureDceDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(grouped)) {
        const auto futures = client_->futures.write();
        std::swap(futures->spreads, *spreads);
    }
}

void CClientInstrumentCenter::createStockCodes(
    const std::vector<std::string>& markets,
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create stock codes");
    if (!touchesStockCodes(markets)) {
        return;
    }
    const StockCodes codes = deriveStockCodes(grouped);
    state().publish([&](Version& version) { install(codes, version.codeSets.own()); });
    for (const auto& [market, entries] : codes.ipo) {
        for (const std::string& entry : entries) {
            PM_CENTER_LOG(kLogInfo, kClientSource, fmt::format("[ipo] stk code:{0}", entry));
        }
    }
    for (const auto& [market, entries] : codes.cdr) {
        for (const std::string& entry : entries) {
            PM_CENTER_LOG(kLogInfo, kClientSource, fmt::format("[ipo] cdr code:{0}", entry));
        }
    }
}

void CClientInstrumentCenter::createNeeqCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create neeq codes");
    std::set<std::string> codes = deriveNeeqInquiryCodes(grouped);
    if (!codes.empty()) {  // deliberately unlike the stock codes: none keep what was there
        state().publish([&](Version& version) { version.codeSets.own().neeqInquiryCodes.swap(codes); });
    }
}

void CClientInstrumentCenter::createStkOptionCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create stock option codes");
    auto underlyings = deriveOptionUnderlyings(grouped);
    if (!underlyings.empty()) {
        state().publish([&](Version& version) { installOptionUnderlyings(underlyings, version.codeSets.own()); });
    }
}

void CClientInstrumentCenter::createOutterProductDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    OuterTables fresh = deriveOuterTables(grouped, client_->outerMarkets);
    install(fresh, *client_->outer.write());
}

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
    const MarketKey key = marketKey(market);
    InstrumentMap out;
    bool known = false;
    bool unsaved = false;
    {
        const auto futures = client_->futures.read();
        known = futures->mainCodesByMarket.count(key) != 0;
        unsaved = futures->unsavedMarkets.count(key) != 0;
    }
    if (unsaved) {
        addByKeyText(recordsOf(listOf(mainsOfMarket(client_->futures, key))), out);
    } else if (known) {
        addByKeyText(readField(client_->names.getDbName(kFutureMains), fieldOf(market)), out);
    }
    return out;
}

std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>>
CClientInstrumentCenter::getProductMainInstruments() {
    const std::map<std::string, KeySet> keysByProduct = client_->futures.read()->mainCodesByProduct;
    std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>> mains;
    for (const auto& [product, keys] : keysByProduct) {
        const std::vector<InstrumentPtr> records = recordsOf(listOf(keys));
        mains[product].assign(records.begin(), records.end());
    }
    return mains;
}

std::list<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getProductInstruments(
    const std::string& productId) {
    StoredProduct product;
    {
        const auto futures = client_->futures.read();
        const auto found = futures->products.find(productId);
        if (found == futures->products.end()) {
            return {};  // also for a field that an earlier run left
        }
        product = found->second;
    }
    const auto records = product.saved ? readField(client_->names.getDbName(kFutureProducts), fieldOf(productId))
                                       : recordsOf(product.unsaved);
    return {records.begin(), records.end()};
}

void CClientInstrumentCenter::removeMarkets(const std::vector<std::string>& markets) {
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        const MarketKey key = marketKey(name);
        state().publish([&](Version& version) { removeMarket(name, version.codeSets.own()); });
        const std::vector<StockKey> listed = client_->codeIndex.keysOf(key);
        clearDatas({name});
        // What loads have left that did not name the market.
        KeySet keys = client_->codeIndex.remove(key);
        keys.insert(listed.begin(), listed.end());
        removeMarket(key, keys, *client_->futures.write());
        removeFromProducts(key);
        if (client_->outerMarkets.count(key) != 0) {
            exchange(client_->outer, OuterTables());
        }
    }
}

/// Products whose contracts were all of the market are forgotten. Others keep the rest: their field in the store still
/// has the market's contracts, so they answer by key from now on.
void CClientInstrumentCenter::removeFromProducts(uint64 market) {
    std::vector<std::string> concerned;
    {
        const auto futures = client_->futures.read();
        for (const auto& [product, stored] : futures->products) {
            if (stored.markets.count(market) != 0) {
                concerned.push_back(product);
            }
        }
    }
    for (const std::string& product : concerned) {
        StoredProduct rest;
        for (const InstrumentPtr& contract : CClientInstrumentCenter::getProductInstruments(product)) {
            const MarketKey key = marketKey(contract->market);
            if (key != market) {
                rest.unsaved.push_back(stockKey(contract->market, contract->code));
                rest.markets.insert(key);
            }
        }
        const auto futures = client_->futures.write();
        if (rest.unsaved.empty()) {
            futures->products.erase(product);
        } else {
            std::swap(futures->products[product], rest);
        }
    }
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
    return client_->futures.read()->spreads.crossProduct;
}

std::vector<std::pair<std::string, std::string>> CClientInstrumentCenter::getDceCrossPeriod() {
    return client_->futures.read()->spreads.crossPeriod;
}

namespace {

std::string nameIn(const std::map<std::string, std::string>& names, const std::string& key) {
    const auto found = names.find(key);
    return found == names.end() ? std::string() : found->second;
}

}  // namespace

std::string CClientInstrumentCenter::getOutterProductName(const std::string& productId) {
    return nameIn(client_->outer.read()->productNames, productId);
}

std::map<std::string, std::string> CClientInstrumentCenter::getOutterProduct() {
    return client_->outer.read()->productNames;
}

std::string CClientInstrumentCenter::getOutterMarketName(const std::string& market) {
    return nameIn(client_->outer.read()->marketNames, market);
}

std::map<std::string, std::string> CClientInstrumentCenter::getOutterMarket() {
    return client_->outer.read()->marketNames;
}

std::map<std::string, std::set<std::string>> CClientInstrumentCenter::getMarketProductList() {
    return client_->outer.read()->productsByMarket;
}

bool CClientInstrumentCenter::isCommodityProduct(const std::string& productId) {
    return client_->outer.read()->commodityProducts.count(productId) != 0;
}

bool CClientInstrumentCenter::isInterestProduct(const std::string& productId) {
    return client_->outer.read()->interestProducts.count(productId) != 0;
}

}  // namespace mxservice
