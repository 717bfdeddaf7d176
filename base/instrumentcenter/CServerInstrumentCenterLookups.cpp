#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "base/instrumentcenter/vocabulary/Keys.h"
#include "platform/utils/Utils.h"

// What a key is, and the records themselves.

namespace mxservice {

bool CServerInstrumentCenter::hasCode(const std::string& code) {
    return server_->classifier.isCode(code);
}

bool CServerInstrumentCenter::hasStock(const std::string& code) {
    return server_->classifier.isStock(code);
}

bool CServerInstrumentCenter::hasFuture(const std::string& code) {
    return server_->classifier.isFuture(code);
}

bool CServerInstrumentCenter::hasHkstock(const std::string& code) {
    return server_->classifier.isFiledUnderShanghaiConnect(code);
}

bool CServerInstrumentCenter::hasSkstock(const std::string& code) {
    return server_->classifier.isHongKongStock(code);
}

bool CServerInstrumentCenter::hasOption(const std::string& code) {
    return server_->classifier.isOption(code);
}

bool CServerInstrumentCenter::hasFutureOption(const std::string& code) {
    return server_->classifier.isFuture(code);
}

bool CServerInstrumentCenter::hasNeeq(const std::string& code) {
    return server_->classifier.isNeeq(code);
}

bool CServerInstrumentCenter::hasGold(const std::string& code) {
    return server_->classifier.isGold(code);
}

bool CServerInstrumentCenter::hasBond(const std::string& code) {
    return server_->classifier.isBond(code);
}

bool CServerInstrumentCenter::hasOuterFuture(const std::string& code) {
    return server_->classifier.isOuterFuture(code);
}

bool CServerInstrumentCenter::hasOuterStock(const std::string& code) {
    return hasNyseStock(code) || hasNasdaqStock(code);
}

bool CServerInstrumentCenter::hasNyseStock(const std::string& code) {
    return server_->classifier.isNyseStock(code);
}

bool CServerInstrumentCenter::hasNasdaqStock(const std::string& code) {
    return server_->classifier.isNasdaqStock(code);
}

boost::shared_ptr<CInstrumentDetail> CServerInstrumentCenter::getInstrument(uint64 key) {
    return lookUp(server_->records, key);
}

boost::shared_ptr<CInstrumentDetail> CServerInstrumentCenter::getInstrument(const std::string& code) {
    return getInstrument(foldedTextKey(code));
}

boost::shared_ptr<CInstrumentDetail> CServerInstrumentCenter::getInstrument(const std::string& market,
                                                                            const std::string& code) {
    return getInstrument(stockKey(foldedMarket(market), code));
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments() {
    InstrumentMap out;
    getInstruments(out);
    return out;
}

void CServerInstrumentCenter::getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    std::vector<InstrumentPtr> records;
    {
        const auto index = server_->records.read();
        records.reserve(index->size());
        for (const auto& [key, record] : *index) {
            if (record) {
                records.push_back(record);
            }
        }
    }
    addByKeyText(records, out);
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::string& market) {
    InstrumentMap out;
    addByKeyText(server_->resolve(server_->codeIndex.keysOf(marketKey(foldedMarket(market)))), out);
    return out;
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::list<std::string>& markets) {
    InstrumentMap out;
    getInstruments(markets, out);
    return out;
}

void CServerInstrumentCenter::getInstruments(const std::list<std::string>& markets,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    for (const std::string& market : markets) {
        addByKeyText(server_->resolve(server_->codeIndex.keysOf(marketKey(foldedMarket(market)))), out);
    }
}

void CServerInstrumentCenter::getInstruments(const std::string& market,
                                             std::list<boost::shared_ptr<CInstrumentDetail>>& out) {
    for (const auto& [text, record] : getInstruments(market)) {
        out.push_back(record);
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    EOvTraderType type) {
    if (meansEverything(type)) {
        return getInstruments();
    }
    const std::list<std::string> markets = getExchanges(type);
    InstrumentMap out;
    if (!markets.empty()) {
        out = getInstruments(markets);
        keepOnly(type, out);
    }
    return out;
}

void CServerInstrumentCenter::getInstruments(EOvTraderType type,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(getInstruments(type));
}

}  // namespace mxservice
