#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"

// What is derived from a load: futures main contracts and spreads, code sets. Each derivation runs on the loading
// thread and adds its finished table to the load's change; called alone, by a host's derived class, it is a change by
// itself.

namespace mxservice {

void CServerInstrumentCenter::publishAlone(ServerChange& change) {
    if (!change.isEmpty()) {
        publish(state(), [&](ServerVersion& version) { change.applyTo(version); });
    }
}

void CServerInstrumentCenter::createFutureMainDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    ServerChange change;
    deriveMains(grouped, change);
    publishAlone(change);
}

void CServerInstrumentCenter::deriveMains(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create future main datas");
    auto mainsByMarket = deriveMainContracts(grouped, server_->futureMarkets);
    if (mainsByMarket.empty()) {
        return;
    }
    change.add([mainsByMarket = std::move(mainsByMarket)](ServerVersion& version) mutable {
        FuturesCatalogue& futures = version.futures.own();
        for (auto& [market, mains] : mainsByMarket) {
            installMainContracts(market, mains, futures);
        }
    });
}

void CServerInstrumentCenter::createFutureProdcutDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& /*grouped*/) {
    // Deliberately no more than its line: this center keeps neither contract lists nor names of products.
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create future product datas");
}

void CServerInstrumentCenter::createFutureDceDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    ServerChange change;
    deriveSpreads(grouped, change);
    publishAlone(change);
}

void CServerInstrumentCenter::deriveSpreads(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, ServerChange& change) {
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(grouped)) {
        change.add([spreads = std::move(*spreads)](ServerVersion& version) mutable {
            std::swap(version.futures.own().spreads, spreads);
        });
    }
}

void CServerInstrumentCenter::createStockCodes(
    const std::vector<std::string>& markets,
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    ServerChange change;
    deriveCodes(markets, grouped, change);
    publishAlone(change);
}

void CServerInstrumentCenter::deriveCodes(
    const std::vector<std::string>& markets,
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create stock codes");
    if (touchesStockCodes(markets)) {
        change.add([codes = deriveStockCodes(grouped)](ServerVersion& version) mutable {
            install(std::move(codes), version.codeSets.own());
        });
    }
}

void CServerInstrumentCenter::createNeeqCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    ServerChange change;
    deriveInquiries(grouped, change);
    publishAlone(change);
}

void CServerInstrumentCenter::deriveInquiries(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create neeq codes");
    std::set<std::string> codes = deriveNeeqInquiryCodes(grouped);
    if (!codes.empty()) {  // deliberately unlike the stock codes: none keep what was there
        change.add([codes = std::move(codes)](ServerVersion& version) mutable {
            version.codeSets.own().neeqInquiryCodes.swap(codes);
        });
    }
}

void CServerInstrumentCenter::createStkOptionCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    ServerChange change;
    deriveUnderlyings(grouped, change);
    publishAlone(change);
}

void CServerInstrumentCenter::deriveUnderlyings(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create stock option codes");
    auto underlyings = deriveOptionUnderlyings(grouped);
    if (!underlyings.empty()) {
        change.add([underlyings = std::move(underlyings)](ServerVersion& version) mutable {
            installOptionUnderlyings(underlyings, version.codeSets.own());
        });
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getFutureMainInstruments(
    const std::string& market) {
    return view().getFutureMainInstruments(market);
}

std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>>
CServerInstrumentCenter::getProductMainInstruments() {
    return view().getProductMainInstruments();
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
    return view().getDceCrossProduct();
}

std::vector<std::pair<std::string, std::string>> CServerInstrumentCenter::getDceCrossPeriod() {
    return view().getDceCrossPeriod();
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
