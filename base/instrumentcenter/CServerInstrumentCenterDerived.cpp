#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "platform/utils/LogLine.h"

// What is derived from a load: futures main contracts and spreads, code sets. Derivation runs without a lock; only the
// finished table goes in under one.

namespace mxservice {

void CServerInstrumentCenter::createFutureMainDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create future main datas");
    for (auto& [market, mains] : deriveMainContracts(grouped, server_->futureMarkets)) {
        installMainContracts(market, mains, *server_->futures.write());
    }
}

void CServerInstrumentCenter::createFutureProdcutDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& /*grouped*/) {
    // Deliberately no more than its line: this center keeps neither contract lists nor names of products.
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create future product datas");
}

void CServerInstrumentCenter::createFutureDceDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(grouped)) {
        const auto futures = server_->futures.write();
        std::swap(futures->spreads, *spreads);
    }
}

void CServerInstrumentCenter::createStockCodes(
    const std::vector<std::string>& markets,
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create stock codes");
    if (touchesStockCodes(markets)) {
        install(deriveStockCodes(grouped), state().codeSets);
    }
}

void CServerInstrumentCenter::createNeeqCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create neeq codes");
    installNeeqInquiryCodes(deriveNeeqInquiryCodes(grouped), state().codeSets);
}

void CServerInstrumentCenter::createStkOptionCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create stock option codes");
    installOptionUnderlyings(deriveOptionUnderlyings(grouped), state().codeSets);
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getFutureMainInstruments(
    const std::string& market) {
    InstrumentMap out;
    addByKeyText(server_->resolve(mainsOfMarket(server_->futures, marketKey(market))), out);
    return out;
}

std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>>
CServerInstrumentCenter::getProductMainInstruments() {
    const std::map<std::string, KeySet> keysByProduct = server_->futures.read()->mainCodesByProduct;
    std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>> mains;
    if (keysByProduct.empty()) {
        return mains;
    }
    const auto index = server_->records.read();
    for (const auto& [product, keys] : keysByProduct) {
        const std::vector<InstrumentPtr> records = resolve(keys, *index);
        mains[product].assign(records.begin(), records.end());
    }
    return mains;
}

std::list<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getProductInstruments(
    const std::string& /*productId*/) {
    return {};
}

std::string CServerInstrumentCenter::getProductId(const std::string& market, const std::string& code) {
    const InstrumentPtr record = getInstrument(market, code);
    return record ? record->productId : std::string();
}

std::string CServerInstrumentCenter::getProductName(const std::string& /*productId*/) {
    return {};
}

std::vector<std::pair<std::string, std::string>> CServerInstrumentCenter::getDceCrossProduct() {
    return server_->futures.read()->spreads.crossProduct;
}

std::vector<std::pair<std::string, std::string>> CServerInstrumentCenter::getDceCrossPeriod() {
    return server_->futures.read()->spreads.crossPeriod;
}

// The outer-market tables are the persisted center's alone.

std::string CServerInstrumentCenter::getOutterProductName(const std::string& /*productId*/) {
    return {};
}

std::map<std::string, std::string> CServerInstrumentCenter::getOutterProduct() {
    return {};
}

std::string CServerInstrumentCenter::getOutterMarketName(const std::string& /*market*/) {
    return {};
}

std::map<std::string, std::string> CServerInstrumentCenter::getOutterMarket() {
    return {};
}

std::map<std::string, std::set<std::string>> CServerInstrumentCenter::getMarketProductList() {
    return {};
}

}  // namespace mxservice
