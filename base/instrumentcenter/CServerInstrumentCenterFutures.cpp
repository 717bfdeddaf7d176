#include <optional>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"

// Futures: main contracts, products, Dalian spreads, and what this center leaves out of outer markets.

namespace mxservice {

void CServerInstrumentCenter::createFutureMainDatas(const GroupedSnapshot& grouped) {
    publishStep(state(), [&](ServerChange& change) { deriveMains(grouped, change); });
}

void CServerInstrumentCenter::deriveMains(const GroupedSnapshot& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create future main datas");
    auto mainsByMarket = deriveMainContracts(grouped, server_->futureMarkets);
    // Empty without a futures market in the load: other loads leave the mains alone, and share their table.
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

void CServerInstrumentCenter::createFutureProdcutDatas(const GroupedSnapshot& /*grouped*/) {
    // Deliberately no more than its line: this center keeps neither contract lists nor names of products.
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create future product datas");
}

void CServerInstrumentCenter::createFutureDceDatas(const GroupedSnapshot& grouped) {
    publishStep(state(), [&](ServerChange& change) { deriveSpreads(grouped, change); });
}

void CServerInstrumentCenter::deriveSpreads(const GroupedSnapshot& grouped, ServerChange& change) {
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(grouped)) {
        // The pairs that were there leave with the step, after the version is published.
        change.add([spreads = std::move(*spreads)](ServerVersion& version) mutable {
            std::swap(version.futures.own().spreads, spreads);
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
    // Through the slot: a host's own records have products, too.
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
