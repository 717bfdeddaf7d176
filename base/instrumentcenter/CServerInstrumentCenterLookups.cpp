#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/Questions.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

// What a key is, and the records themselves. Questions about one key are asked of the version of the moment; what takes
// longer is asked of a view, so that who publishes meanwhile need not wait.

namespace mxservice {
namespace {

template <class Question>
bool isOne(const InterfaceState& state, const std::string& keyText) {
    // Text and markets are hashed before the version is asked: who publishes waits for what is asked, so that is a
    // probe and a comparison.
    const StockKey key = Question::keyOf(keyText);
    const auto& markets = Question::markets();
    return ask(state,
               [&](const ServerVersion& version) noexcept { return isAmong(version.keys.marketOf(key), markets); });
}

}  // namespace

InstrumentView CServerInstrumentCenter::view() const {
    return InstrumentView(std::static_pointer_cast<const ServerVersion>(state().versions.hold()));
}

std::uint64_t CServerInstrumentCenter::version() const {
    return ask(state(), [](const ServerVersion& version) noexcept { return version.number; });
}

std::size_t CServerInstrumentCenter::resolve(const uint64* keys, std::size_t count,
                                             boost::shared_ptr<CInstrumentDetail>* out) const {
    return view().resolve(keys, count, out);
}

bool CServerInstrumentCenter::hasCode(const std::string& code) {
    const StockKey key = foldedTextKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.keys.marketOf(key) != nullptr; });
}

bool CServerInstrumentCenter::hasStock(const std::string& code) {
    return isOne<IsStock>(state(), code);
}

bool CServerInstrumentCenter::hasFuture(const std::string& code) {
    return isOne<IsFuture>(state(), code);
}

bool CServerInstrumentCenter::hasHkstock(const std::string& code) {
    return isOne<IsFiledUnderShanghaiConnect>(state(), code);
}

bool CServerInstrumentCenter::hasSkstock(const std::string& code) {
    return isOne<IsHongKongStock>(state(), code);
}

bool CServerInstrumentCenter::hasOption(const std::string& code) {
    return isOne<IsOption>(state(), code);
}

bool CServerInstrumentCenter::hasFutureOption(const std::string& code) {
    // Not a slip: the exchanges list both under one market, and telling them apart is left to the record.
    return isOne<IsFuture>(state(), code);
}

bool CServerInstrumentCenter::hasNeeq(const std::string& code) {
    return isOne<IsNeeq>(state(), code);
}

bool CServerInstrumentCenter::hasGold(const std::string& code) {
    return isOne<IsGold>(state(), code);
}

bool CServerInstrumentCenter::hasBond(const std::string& code) {
    return isOne<IsBond>(state(), code);
}

bool CServerInstrumentCenter::hasOuterFuture(const std::string& code) {
    return isOne<IsOuterFuture>(state(), code);
}

bool CServerInstrumentCenter::hasOuterStock(const std::string& code) {
    // Through the slots: a host's own answer to either counts here, too.
    return hasNyseStock(code) || hasNasdaqStock(code);
}

bool CServerInstrumentCenter::hasNyseStock(const std::string& code) {
    return isOne<IsNyseStock>(state(), code);
}

bool CServerInstrumentCenter::hasNasdaqStock(const std::string& code) {
    return isOne<IsNasdaqStock>(state(), code);
}

boost::shared_ptr<CInstrumentDetail> CServerInstrumentCenter::getInstrument(uint64 key) {
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.recordOf(key); });
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

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments() {
    return view().getInstruments();
}

void CServerInstrumentCenter::getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(view().getInstruments());  // as all forms that add: what `out` has under a text stays
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::string& market) {
    return view().getInstruments(market);
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getInstruments(
    const std::list<std::string>& markets) {
    return view().getInstruments(markets);
}

void CServerInstrumentCenter::getInstruments(const std::list<std::string>& markets,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(view().getInstruments(markets));
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
    return view().getInstruments(type);
}

void CServerInstrumentCenter::getInstruments(EOvTraderType type,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(view().getInstruments(type));
}

}  // namespace mxservice
