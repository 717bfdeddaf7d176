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

// The lists. A host may override any of them in terms of another one of this class, so none calls another through its
// slot, but for the one that is promised to.

namespace {

void addEverything(const ServerState& server, InstrumentMap& out) {
    std::vector<InstrumentPtr> records;
    {
        const auto index = server.records.read();
        records.reserve(index->size());
        for (const auto& [key, record] : *index) {
            if (record) {
                records.push_back(record);
            }
        }
    }
    addByKeyText(records, out);
}

void addMarket(const ServerState& server, const std::string& market, InstrumentMap& out) {
    addByKeyText(server.resolve(server.codeIndex.keysOf(marketKey(foldedMarket(market)))), out);
}

InstrumentMap ofTraderType(const ServerState& server, EOvTraderType type) {
    InstrumentMap out;
    if (meansEverything(type)) {
        addEverything(server, out);
        return out;
    }
    for (const std::string& market : exchangesOf(type)) {
        addMarket(server, market, out);
    }
    keepOnly(type, out);
    return out;
}

}  // namespace

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments() {
    InstrumentMap out;
    addEverything(*server_, out);
    return out;
}

void CServerInstrumentCenter::getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    addEverything(*server_, out);
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::string& market) {
    InstrumentMap out;
    addMarket(*server_, market, out);
    return out;
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::list<std::string>& markets) {
    InstrumentMap out;
    for (const std::string& market : markets) {
        addMarket(*server_, market, out);
    }
    return out;
}

void CServerInstrumentCenter::getInstruments(const std::list<std::string>& markets,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    for (const std::string& market : markets) {
        addMarket(*server_, market, out);
    }
}

void CServerInstrumentCenter::getInstruments(const std::string& market,
                                             std::list<boost::shared_ptr<CInstrumentDetail>>& out) {
    // Through the slot, as promised: the list follows a host's own by-market answer.
    for (const auto& [text, record] : getInstruments(market)) {
        out.push_back(record);
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    EOvTraderType type) {
    return ofTraderType(*server_, type);
}

void CServerInstrumentCenter::getInstruments(EOvTraderType type,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(ofTraderType(*server_, type));
}

}  // namespace mxservice
